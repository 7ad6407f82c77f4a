// SPDX-License-Identifier: MIT
#include "pipeline/OverlapAddSynthesizer.h"

#include <cmath>

#include <gtest/gtest.h>
#include <xtensor/xview.hpp>

#include "spectral/WindowFunctions.h"
#include "support/Signals.h"

namespace
{

constexpr std::size_t fftSize = 64;
constexpr std::size_t hop = 16;
const std::vector<float> window = makeWindow(WindowType::Blackman, fftSize);

/// Any packed spectra {2, fftSize}.
Array someFrame(std::uint32_t seed)
{
    return smoothNoise(2, fftSize, seed);
}

// The window begins at -1.5e-8 and the divisor has no floor: the first sample of a stream comes out as some
// 67 million times the frame's.
TEST(OverlapAddSynthesizer, EverySampleIsTheWindowWeightedMeanOfTheFramesThatCoverIt)
{
    constexpr std::size_t count = 7;
    OverlapAddSynthesizer synthesizer(2, fftSize, hop, window);
    std::vector<double> sums(count * hop + fftSize);
    std::vector<double> weights(sums.size());
    const auto expectSamples = [&](const Array& samples, std::size_t first, std::size_t length)
    {
        ASSERT_EQ(shapeOf(samples), (std::vector<std::size_t>{2, length}));
        for (std::size_t n = 0; n < length; ++n)
        {
            const double expected = sums[first + n] / weights[first + n];
            // Sums of four products: a few roundings of a value that near the first sample is divided by
            // little.
            EXPECT_NEAR(samples(1, n), expected, 1e-6 + 1e-6 * std::abs(expected)) << first + n;
        }
    };
    for (std::uint32_t i = 0; i < count; ++i)
    {
        const Array frame = someFrame(i);
        const Array samples = PFFFTTransformer(fftSize, false).inverse(frame);
        for (std::size_t n = 0; n < fftSize; ++n)
        {
            sums[i * hop + n] += static_cast<double>(window[n]) * static_cast<double>(samples(1, n));
            weights[i * hop + n] += static_cast<double>(window[n]) * static_cast<double>(window[n]);
        }
        expectSamples(synthesizer.process(frame), i * hop, hop);
        expectSamples(synthesizer.tail(), (i + 1) * hop, fftSize - hop); // asking changes nothing
    }
}

TEST(OverlapAddSynthesizer, ABatchIsItsFramesInARowAndAnEmptyOneHasTwoRowsWhateverTheChannelCount)
{
    constexpr std::size_t count = 5;
    OverlapAddSynthesizer single(2, fftSize, hop, window);
    OverlapAddSynthesizer batched(2, fftSize, hop, window);
    Array batch = Array::from_shape({2, fftSize, count});
    Array expected = Array::from_shape({2, count * hop});
    for (std::uint32_t i = 0; i < count; ++i)
    {
        const Array frame = someFrame(i);
        xt::view(batch, xt::all(), xt::all(), i) = frame;
        xt::view(expected, xt::all(), xt::range(i * hop, (i + 1) * hop)) = single.process(frame);
    }
    EXPECT_EQ(batched.process(batch), expected);
    OverlapAddSynthesizer surround(3, fftSize, hop, window);
    EXPECT_EQ(shapeOf(surround.process(Array::from_shape({3, fftSize, 0}))),
              (std::vector<std::size_t>{2, 0}));
}

// Before, between and after frames with sound: what is heard of them must ring out as it would.
TEST(OverlapAddSynthesizer, SilentHopsAreFramesOfZeros)
{
    OverlapAddSynthesizer quick(2, fftSize, hop, window);
    OverlapAddSynthesizer plain(2, fftSize, hop, window);
    const Array zeros = xt::zeros<float>({std::size_t{2}, fftSize});
    std::uint32_t frame = 0;
    for (const int silent : {2, 1, 6, 3, 12})
    {
        const Array sound = someFrame(++frame);
        EXPECT_EQ(quick.process(sound), plain.process(sound));
        for (int i = 0; i < silent; ++i)
        {
            Array hopOfQuick = Array::from_shape({2, hop});
            quick.completeSilentHop(hopOfQuick.data(), hop);
            EXPECT_EQ(hopOfQuick, plain.process(zeros)) << silent << ", " << i;
            EXPECT_EQ(quick.tail(), plain.tail());
        }
    }
}

} // namespace
