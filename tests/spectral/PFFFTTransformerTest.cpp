#include "spectral/PFFFTTransformer.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "support/ReferenceTransform.h"
#include "support/Signals.h"

namespace
{

/// Rows of white noise in [-1, 1].
Array whiteNoise(std::size_t rows, std::size_t width, std::uint32_t seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> uniform(-1.0F, 1.0F);
    Array noise = Array::from_shape({rows, width});
    std::generate(noise.begin(), noise.end(), [&] { return uniform(generator); });
    return noise;
}

/// A row's spectrum by the definition, packed, with an empty Nyquist slot.
std::vector<float> packedReference(std::span<const float> samples)
{
    const Spectrum spectrum = naiveFourier({samples.begin(), samples.end()});
    std::vector<float> packed(samples.size());
    packed[0] = static_cast<float>(spectrum[0].real());
    for (std::size_t k = 1; k < packed.size() / 2; ++k)
    {
        packed[2 * k] = static_cast<float>(spectrum[k].real());
        packed[2 * k + 1] = static_cast<float>(spectrum[k].imag());
    }
    return packed;
}

/// What of each row is left without its Nyquist component, the mean of the samples with alternating signs.
Array withoutNyquist(const Array& rows)
{
    Array result = rows;
    for (std::size_t r = 0; r < rows.shape(0); ++r)
    {
        double component = 0.0;
        for (std::size_t i = 0; i < rows.shape(1); ++i)
            component += (i % 2 == 0 ? 1.0 : -1.0) * static_cast<double>(rows(r, i));
        component /= static_cast<double>(rows.shape(1));
        for (std::size_t i = 0; i < rows.shape(1); ++i)
            result(r, i) -= static_cast<float>(i % 2 == 0 ? component : -component);
    }
    return result;
}

/// Single-precision transforms of values up to 1 round log2(N) times sums that grow as sqrt(N).
double forwardTolerance(std::size_t size)
{
    return 1e-6 * std::sqrt(static_cast<double>(size));
}

} // namespace

class PFFFTTransformerSizes : public ::testing::TestWithParam<std::size_t>
{
};

// PFFFT takes products of 2, 3 and 5 that are multiples of 32.
INSTANTIATE_TEST_SUITE_P(PFFFTTransformer, PFFFTTransformerSizes, ::testing::Values(32, 96, 160, 4096));

TEST_P(PFFFTTransformerSizes, ForwardIsTheUnscaledTransformOfEveryRow)
{
    const std::size_t size = GetParam();
    const std::uint32_t seed = randomSeed();
    SCOPED_TRACE(seedText(seed));
    const Array noise = whiteNoise(3, size, seed);
    const Array spectra = PFFFTTransformer(size, false).forward(noise);
    ASSERT_EQ(shapeOf(spectra), (std::vector<std::size_t>{3, size}));
    for (std::size_t r = 0; r < 3; ++r)
        EXPECT_TRUE(samplesNear(row(spectra, r), packedReference(row(noise, r)), forwardTolerance(size)));
}

TEST_P(PFFFTTransformerSizes, InverseUndoesForwardButForTheNyquistComponent)
{
    const std::size_t size = GetParam();
    const std::uint32_t seed = randomSeed();
    SCOPED_TRACE(seedText(seed));
    const Array noise = whiteNoise(2, size, seed);
    const Array expected = withoutNyquist(noise);
    for (const bool padNyquist : {false, true})
    {
        PFFFTTransformer transformer(size, padNyquist);
        const Array restored = transformer.inverse(transformer.forward(noise));
        ASSERT_EQ(shapeOf(restored), shapeOf(noise));
        for (std::size_t r = 0; r < 2; ++r) // scaled back, what is left is the rounding of values up to 1
            EXPECT_TRUE(samplesNear(row(restored, r), row(expected, r), 2e-6));
    }
}

TEST_P(PFFFTTransformerSizes, PaddedSpectraCarryATrailingEmptyBin)
{
    const std::size_t size = GetParam();
    const Array noise = whiteNoise(2, size, 7);
    const Array plain = PFFFTTransformer(size, false).forward(noise);
    const Array padded = PFFFTTransformer(size, true).forward(noise);
    ASSERT_EQ(shapeOf(padded), (std::vector<std::size_t>{2, size + 2}));
    for (std::size_t r = 0; r < 2; ++r)
    {
        EXPECT_TRUE(samplesNear(row(padded, r).first(size), row(plain, r), 0.0));
        EXPECT_EQ(padded(r, 1), 0.0F);
        EXPECT_EQ(padded(r, size), 0.0F);
        EXPECT_EQ(padded(r, size + 1), 0.0F);
    }
}

TEST(PFFFTTransformer, AConstantRowHasOnlyDcAndAnAlternatingRowNothing)
{
    constexpr std::size_t size = 4096;
    Array rows = Array::from_shape({2, size});
    for (std::size_t i = 0; i < size; ++i)
    {
        rows(0, i) = 0.25F;
        rows(1, i) = i % 2 == 0 ? 1.0F : -1.0F;
    }
    const Array spectra = PFFFTTransformer(size, false).forward(rows);
    EXPECT_EQ(spectra(0, 0), 1024.0F); // sums of equal powers of two are exact
    EXPECT_TRUE(samplesNear(row(spectra, 0).subspan(1), std::vector<float>(size - 1), 0.0));
    EXPECT_TRUE(samplesNear(row(spectra, 1), std::vector<float>(size), 0.0));
}

TEST(PFFFTTransformer, InverseReadsTheNyquistValueFromSlotOneAndScalesOnce)
{
    constexpr std::size_t size = 32;
    Array spectrum = xt::zeros<float>({std::size_t{1}, size});
    spectrum(0, 1) = 32.0F;
    const Array samples = PFFFTTransformer(size, false).inverse(spectrum);
    for (std::size_t i = 0; i < size; ++i)
        EXPECT_EQ(samples(0, i), i % 2 == 0 ? 1.0F : -1.0F) << i;
}

TEST(PFFFTTransformer, PaddedInverseIgnoresTheTrailingBin)
{
    constexpr std::size_t size = 32;
    Array spectrum = xt::zeros<float>({std::size_t{1}, size + 2});
    spectrum(0, 0) = 64.0F;
    spectrum(0, 1) = 32.0F;
    spectrum(0, size) = 1000.0F;
    spectrum(0, size + 1) = 1000.0F;
    const Array samples = PFFFTTransformer(size, true).inverse(spectrum);
    ASSERT_EQ(shapeOf(samples), (std::vector<std::size_t>{1, size}));
    for (std::size_t i = 0; i < size; ++i)
        EXPECT_EQ(samples(0, i), i % 2 == 0 ? 3.0F : 1.0F) << i;
}

TEST(PFFFTTransformer, NoRowsGiveNoRowsOfTheRightWidth)
{
    constexpr std::size_t size = 64;
    for (const bool padNyquist : {false, true})
    {
        PFFFTTransformer transformer(size, padNyquist);
        const std::size_t width = padNyquist ? size + 2 : size;
        EXPECT_EQ(shapeOf(transformer.forward(Array::from_shape({0, size}))),
                  (std::vector<std::size_t>{0, width}));
        EXPECT_EQ(shapeOf(transformer.inverse(Array::from_shape({0, width}))),
                  (std::vector<std::size_t>{0, size}));
    }
}

TEST(PFFFTTransformer, TheRowInterfaceGivesTheSameValuesAsTheArrays)
{
    constexpr std::size_t size = 96;
    const Array noise = whiteNoise(1, size, 11);
    PFFFTTransformer transformer(size, false);
    const Array spectrum = transformer.forward(noise);
    const Array samples = transformer.inverse(spectrum);

    std::copy_n(noise.data(), size, transformer.inputRow().data());
    EXPECT_TRUE(samplesNear(transformer.forwardRow(), row(spectrum, 0), 0.0));

    std::copy_n(spectrum.data(), size, transformer.inputRow().data());
    std::vector<float> unscaled(row(samples, 0).begin(), row(samples, 0).end());
    const auto back = transformer.inverseRow();
    for (std::size_t i = 0; i < size; ++i)
        EXPECT_EQ(back[i] / static_cast<float>(size), unscaled[i]) << i;
}

TEST(PFFFTTransformer, ASizeWithAnotherPrimeFactorYieldsSilence)
{
    constexpr std::size_t size = 224; // 32 * 7
    PFFFTTransformer transformer(size, false);
    const Array noise = whiteNoise(1, size, 3);
    EXPECT_TRUE(samplesNear(row(transformer.forward(noise), 0), std::vector<float>(size), 0.0));
    EXPECT_TRUE(samplesNear(row(transformer.inverse(noise), 0), std::vector<float>(size), 0.0));
}
