#include "spectral/WindowFunctions.h"

#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "support/ReferenceTransform.h"

namespace
{

/// 0.42F - 0.5F + 0.08F in single precision.
constexpr float nearlyZero = -1.4901161193847656e-08F;

} // namespace

TEST(WindowFunctions, LengthZeroIsAnEmptyWindow)
{
    for (const auto type : {WindowType::Hann, WindowType::Hamming, WindowType::Blackman})
        EXPECT_TRUE(makeWindow(type, 0).empty());
}

TEST(WindowFunctions, LengthOneIsNotANumberForTheSymmetricShapesOnly)
{
    for (const auto type : {WindowType::Hann, WindowType::Hamming})
    {
        const auto window = makeWindow(type, 1);
        ASSERT_EQ(window.size(), 1U);
        EXPECT_TRUE(std::isnan(window[0]));
    }
    const auto blackman = makeWindow(WindowType::Blackman, 1);
    ASSERT_EQ(blackman.size(), 1U);
    EXPECT_EQ(blackman[0], nearlyZero);
}

TEST(WindowFunctions, HannAndHammingAreSymmetricAndRoundedFromDoublePrecision)
{
    const auto hann = makeWindow(WindowType::Hann, 9);
    const auto hamming = makeWindow(WindowType::Hamming, 9);
    ASSERT_EQ(hann.size(), 9U);
    ASSERT_EQ(hamming.size(), 9U);
    // sin^2(pi n / 8), and 0.08 + 0.92 of it.
    const double sineSquared[] = {0.0, 0.14644660940672624, 0.5, 0.85355339059327376, 1.0};
    for (std::size_t n = 0; n < 5; ++n)
    {
        EXPECT_EQ(hann[n], static_cast<float>(sineSquared[n])) << n;
        EXPECT_EQ(hann[8 - n], static_cast<float>(sineSquared[n])) << n;
        EXPECT_EQ(hamming[n], static_cast<float>(0.08 + 0.92 * sineSquared[n])) << n;
        EXPECT_EQ(hamming[8 - n], static_cast<float>(0.08 + 0.92 * sineSquared[n])) << n;
    }
}

TEST(WindowFunctions, BlackmanOfLengthFourIsPeriodic)
{
    const auto window = makeWindow(WindowType::Blackman, 4);
    ASSERT_EQ(window.size(), 4U);
    EXPECT_EQ(window[0], nearlyZero);
    // The cosines near a quarter turn are off by the rounding of the angle, 4.4e-8 per half turn.
    EXPECT_NEAR(window[1], 0.34, 1e-7);
    EXPECT_NEAR(window[3], 0.34, 1e-7);
    EXPECT_GE(window[2], std::nextafter(1.0F, 0.0F));
    EXPECT_LE(window[2], std::nextafter(1.0F, 2.0F));
}

TEST(WindowFunctions, BlackmanFollowsThePeriodicFormula)
{
    for (const std::int32_t length : {16, 100, 4096})
    {
        const auto window = makeWindow(WindowType::Blackman, length);
        const auto reference = referenceWindow(static_cast<std::size_t>(length));
        ASSERT_EQ(window.size(), reference.size());
        // Angles up to 4 pi, rounded to single precision: 13 * 2^-24, times slopes of at most 0.58; and three
        // roundings.
        for (std::size_t n = 0; n < window.size(); ++n)
            ASSERT_NEAR(window[n], reference[n], 6e-7) << "sample " << n << " of " << length;
    }
}

TEST(WindowFunctions, BlackmanIsEvaluatedInSinglePrecisionInAFixedOrder)
{
    const auto window = makeWindow(WindowType::Blackman, 4096);
    const auto reference = referenceWindow(4096);
    const auto angle = static_cast<float>(6.283185307179586 / 4096.0);
    std::size_t unlikeDouble = 0;
    for (std::size_t n = 0; n < 4096; ++n)
    {
        const float first = 0.5F * std::cos(static_cast<float>(n) * angle);
        const float second = 0.08F * std::cos(static_cast<float>(n) * (angle + angle));
        const float difference = 0.42F - first;
        ASSERT_EQ(window[n], difference + second) << n;
        if (window[n] != static_cast<float>(reference[n]))
            ++unlikeDouble;
    }
    // The arithmetic shows: a window rounded from double precision would equal the reference everywhere.
    EXPECT_GT(unlikeDouble, 1000U);
}

TEST(WindowFunctions, UnknownTypesAreRefusedWhateverTheLength)
{
    for (const std::int32_t type : {3, -1, std::numeric_limits<std::int32_t>::max()})
        for (const std::int32_t length : {0, 16, -1})
            try
            {
                makeWindow(static_cast<WindowType>(type), length);
                ADD_FAILURE() << "type " << type << " was accepted";
            }
            catch (const std::runtime_error& error)
            {
                EXPECT_EQ(std::string(error.what()), "Unknown window type");
            }
}

TEST(WindowFunctions, NegativeLengthsFailInTheAllocation)
{
    for (const auto type : {WindowType::Hann, WindowType::Hamming, WindowType::Blackman})
        EXPECT_THROW(makeWindow(type, -1), std::length_error);
}
