// SPDX-License-Identifier: MIT
#include "spectral/WindowFunctions.h"

#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "support/ReferenceTransform.h"

TEST(WindowFunctions, LengthsWithoutAWindowGiveWhatTheArithmeticOrTheAllocationSays)
{
    for (const auto type : {WindowType::Hann, WindowType::Hamming, WindowType::Blackman})
    {
        EXPECT_TRUE(makeWindow(type, 0).empty());
        EXPECT_THROW(makeWindow(type, -1), std::length_error);
    }
    EXPECT_TRUE(std::isnan(makeWindow(WindowType::Hann, 1).at(0)));
    EXPECT_TRUE(std::isnan(makeWindow(WindowType::Hamming, 1).at(0)));
    EXPECT_EQ(makeWindow(WindowType::Blackman, 1).at(0), -1.4901161193847656e-08F); // 0.42F - 0.5F + 0.08F
}

TEST(WindowFunctions, HannAndHammingAreSymmetricAndRoundedFromDoublePrecision)
{
    const auto hann = makeWindow(WindowType::Hann, 9);
    const auto hamming = makeWindow(WindowType::Hamming, 9);
    ASSERT_EQ(hann.size(), 9U);
    ASSERT_EQ(hamming.size(), 9U);
    // sin^2(pi n / 8), and 0.08 + 0.92 of it.
    const double sineSquared[] = {0.0, 0.14644660940672624, 0.5, 0.85355339059327376, 1.0};
    for (std::size_t n = 0; n < 9; ++n)
    {
        const double expected = sineSquared[n < 5 ? n : 8 - n];
        EXPECT_EQ(hann[n], static_cast<float>(expected)) << n;
        EXPECT_EQ(hamming[n], static_cast<float>(0.08 + 0.92 * expected)) << n;
    }
}

TEST(WindowFunctions, BlackmanIsPeriodicAndComputedInSinglePrecision)
{
    for (const std::int32_t length : {4, 100, 4096})
    {
        const auto window = makeWindow(WindowType::Blackman, length);
        const auto reference = referenceWindow(static_cast<std::size_t>(length));
        ASSERT_EQ(window.size(), reference.size());
        EXPECT_EQ(window[0], -1.4901161193847656e-08F);
        std::size_t unlikeDouble = 0;
        for (std::size_t n = 0; n < window.size(); ++n)
        {
            // Angles up to 4 pi, rounded to single precision: 13 * 2^-24, times slopes of at most 0.58; and
            // three roundings.
            ASSERT_NEAR(window[n], reference[n], 6e-7) << "sample " << n << " of " << length;
            unlikeDouble += window[n] != static_cast<float>(reference[n]) ? 1U : 0U;
        }
        // A window rounded from double precision would equal the reference everywhere.
        EXPECT_GE(unlikeDouble, window.size() / 4) << length;
    }
}

TEST(WindowFunctions, UnknownTypesAreRefusedWhateverTheLength)
{
    for (const std::int32_t type : {3, -1})
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
