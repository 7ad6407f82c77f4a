// SPDX-License-Identifier: MIT
#include "spectral/PFFFTTransformer.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "support/ReferenceTransform.h"
#include "support/Signals.h"

namespace
{

class PFFFTTransformerSizes : public ::testing::TestWithParam<std::size_t>
{
protected:
    /// Two rows of white noise in [-1, 1].
    PFFFTTransformerSizes()
    {
        std::mt19937 generator(randomSeed());
        std::uniform_real_distribution<float> uniform(-1.0F, 1.0F);
        std::generate(noise.begin(), noise.end(), [&] { return uniform(generator); });
    }

    std::size_t size = GetParam();
    Array noise = Array::from_shape({2, size});
};

INSTANTIATE_TEST_SUITE_P(PFFFTTransformer, PFFFTTransformerSizes, ::testing::Values(32, 256, 4096));

TEST_P(PFFFTTransformerSizes, ForwardIsTheUnscaledTransformOfEveryRowWithoutNyquist)
{
    const std::vector<double> noWindow(size, 1.0);
    // Values up to 1 are rounded log2(N) times in sums that grow as sqrt(N).
    const double tolerance = 1e-6 * std::sqrt(static_cast<double>(size));
    for (const bool padNyquist : {false, true})
    {
        const Array spectra = PFFFTTransformer(size, padNyquist).forward(noise);
        ASSERT_EQ(shapeOf(spectra), (std::vector<std::size_t>{2, padNyquist ? size + 2 : size}));
        for (std::size_t r = 0; r < 2; ++r)
        {
            const auto spectrum = row(spectra, r);
            EXPECT_TRUE(
                samplesNear(spectrum.first(size), packedSpectrum(row(noise, r), noWindow), tolerance));
            EXPECT_EQ(spectrum[1], 0.0F);
            for (const float trailing : spectrum.subspan(size))
                EXPECT_EQ(trailing, 0.0F);
        }
    }
}

TEST_P(PFFFTTransformerSizes, InverseUndoesForwardButForTheNyquistComponent)
{
    Array expected = noise;
    for (std::size_t r = 0; r < 2; ++r)
    {
        double component = 0.0; // the mean of the samples with alternating signs
        for (std::size_t i = 0; i < size; ++i)
            component += (i % 2 == 0 ? 1.0 : -1.0) * static_cast<double>(noise(r, i));
        component /= static_cast<double>(size);
        for (std::size_t i = 0; i < size; ++i)
            expected(r, i) -= static_cast<float>(i % 2 == 0 ? component : -component);
    }
    for (const bool padNyquist : {false, true})
    {
        PFFFTTransformer transformer(size, padNyquist);
        const Array restored = transformer.inverse(transformer.forward(noise));
        ASSERT_EQ(shapeOf(restored), shapeOf(noise));
        for (std::size_t r = 0; r < 2; ++r) // scaled back, what is left is the rounding of values up to 1
            EXPECT_TRUE(samplesNear(row(restored, r), row(expected, r), 2e-6));
    }
}

TEST(PFFFTTransformer, InverseReadsNyquistFromSlotOneAndIgnoresAPaddedTrailingBin)
{
    constexpr std::size_t size = 32;
    for (const std::size_t padding : {0U, 2U})
    {
        Array spectrum = xt::zeros<float>({std::size_t{1}, size + padding});
        std::fill(spectrum.begin() + size, spectrum.end(), 1000.0F);
        spectrum(0, 0) = 64.0F;
        spectrum(0, 1) = 32.0F;
        const Array samples = PFFFTTransformer(size, padding != 0).inverse(spectrum);
        ASSERT_EQ(shapeOf(samples), (std::vector<std::size_t>{1, size}));
        for (std::size_t i = 0; i < size; ++i)
            EXPECT_EQ(samples(0, i), i % 2 == 0 ? 3.0F : 1.0F) << i;
    }
}

// 224 is 7 times 32; the others are no multiples of that.
TEST(PFFFTTransformer, ASizeThatPFFFTDoesNotSupportFailsWithItsFirstTransform)
{
    for (const std::size_t size : {0U, 1U, 2U, 16U, 33U, 48U, 224U})
    {
        PFFFTTransformer transformer(size, false);
        const Array rows = xt::zeros<float>({std::size_t{1}, size});
        EXPECT_THROW(transformer.forward(rows), std::runtime_error) << size;
        EXPECT_THROW(transformer.inverse(rows), std::runtime_error) << size;
        EXPECT_THROW(transformer.forwardRow(), std::runtime_error) << size;
        EXPECT_THROW(transformer.inverseRow(), std::runtime_error) << size;
    }
}

TEST(PFFFTTransformer, NoRowsGiveNoRowsOfTheRightWidth)
{
    PFFFTTransformer padded(64, true);
    EXPECT_EQ(shapeOf(padded.forward(Array::from_shape({0, 64}))), (std::vector<std::size_t>{0, 66}));
    EXPECT_EQ(shapeOf(padded.inverse(Array::from_shape({0, 66}))), (std::vector<std::size_t>{0, 64}));
}

} // namespace
