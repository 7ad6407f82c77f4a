#include "pipeline/OverlapAddSynthesizer.h"

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>
#include <xtensor/xview.hpp>

#include "spectral/WindowFunctions.h"
#include "support/Signals.h"

namespace
{

constexpr std::size_t fftSize = 64;
constexpr std::size_t hop = 16;

std::vector<float> blackman()
{
    return makeWindow(WindowType::Blackman, fftSize);
}

/// Any packed spectra {channels, fftSize}.
Array someFrame(std::size_t channels, std::uint32_t seed)
{
    return smoothNoise(channels, fftSize, seed);
}

Array inverseOf(const Array& frame)
{
    return PFFFTTransformer(fftSize, false).inverse(frame);
}

/// The spectra whose inverse transform is the window in every row.
Array windowSpectrum(std::size_t channels)
{
    const auto window = blackman();
    Array samples = Array::from_shape({channels, fftSize});
    for (std::size_t channel = 0; channel < channels; ++channel)
        std::copy(window.begin(), window.end(), samples.data() + channel * fftSize);
    return PFFFTTransformer(fftSize, false).forward(samples);
}

} // namespace

TEST(OverlapAddSynthesizer, TheFirstFrameIsDividedByItsOwnSquaredWindowWithoutFloor)
{
    const auto window = blackman();
    const Array frame = someFrame(2, 1);
    const Array samples = inverseOf(frame);
    OverlapAddSynthesizer synthesizer(2, fftSize, hop, window);
    const Array out = synthesizer.process(frame);
    ASSERT_EQ(shapeOf(out), (std::vector<std::size_t>{2, hop}));
    for (std::size_t channel = 0; channel < 2; ++channel)
        for (std::size_t i = 0; i < hop; ++i)
        {
            const float product = samples(channel, i) * window[i];
            const float square = window[i] * window[i];
            EXPECT_EQ(out(channel, i), product / square) << i;
        }
    // The window begins at -1.5e-8, so the quotient of the first sample is some 67 million times the sample.
    EXPECT_GT(std::abs(out(0, 0)), 1e6F * std::abs(samples(0, 0)));
}

TEST(OverlapAddSynthesizer, EverySampleIsTheWindowWeightedMeanOfTheFramesThatCoverIt)
{
    constexpr std::size_t count = 7;
    const auto window = blackman();
    OverlapAddSynthesizer synthesizer(2, fftSize, hop, window);
    std::vector<double> sums(count * hop + fftSize);
    std::vector<double> weights(sums.size());
    for (std::uint32_t i = 0; i < count; ++i)
    {
        const Array frame = someFrame(2, i);
        const Array samples = inverseOf(frame);
        for (std::size_t n = 0; n < fftSize; ++n)
        {
            sums[i * hop + n] += static_cast<double>(window[n]) * static_cast<double>(samples(1, n));
            weights[i * hop + n] += static_cast<double>(window[n]) * static_cast<double>(window[n]);
        }
        const Array out = synthesizer.process(frame);
        for (std::size_t n = i == 0 ? 1 : 0; n < hop; ++n)
        {
            const double expected = sums[i * hop + n] / weights[i * hop + n];
            // Sums of four products: a few roundings of a value that near the first sample is divided by
            // little.
            EXPECT_NEAR(out(1, n), expected, 1e-6 + 1e-6 * std::abs(expected))
                << "frame " << i << ", sample " << n;
        }
    }
    const Array tail = synthesizer.tail();
    ASSERT_EQ(shapeOf(tail), (std::vector<std::size_t>{2, fftSize - hop}));
    for (std::size_t n = 0; n < fftSize - hop; ++n)
    {
        const double expected = sums[count * hop + n] / weights[count * hop + n];
        EXPECT_NEAR(tail(1, n), expected, 1e-6 + 1e-6 * std::abs(expected)) << "tail " << n;
    }
}

TEST(OverlapAddSynthesizer, FramesEqualToTheWindowGiveOne)
{
    OverlapAddSynthesizer synthesizer(3, fftSize, hop, blackman());
    const Array frame = windowSpectrum(3);
    for (int i = 0; i < 6; ++i)
    {
        const Array out = synthesizer.process(frame);
        ASSERT_EQ(shapeOf(out), (std::vector<std::size_t>{3, hop}));
        for (std::size_t channel = 0; channel < 3; ++channel)
            // The transform there and back leaves some 1e-7, which the tiny window at a stream's start blows
            // up.
            for (std::size_t n = i == 0 ? 8 : 0; n < hop; ++n)
                EXPECT_NEAR(out(channel, n), 1.0F, i == 0 ? 1e-4 : 1e-5) << "frame " << i << ", sample " << n;
    }
}

TEST(OverlapAddSynthesizer, AskingForTheTailChangesNothing)
{
    OverlapAddSynthesizer asked(2, fftSize, hop, blackman());
    OverlapAddSynthesizer unasked(2, fftSize, hop, blackman());
    for (std::uint32_t i = 0; i < 5; ++i)
    {
        EXPECT_EQ(asked.process(someFrame(2, i)), unasked.process(someFrame(2, i)));
        EXPECT_EQ(asked.tail(), asked.tail());
    }
    EXPECT_EQ(asked.tail(), unasked.tail());
}

TEST(OverlapAddSynthesizer, ABatchIsItsFramesInARow)
{
    constexpr std::size_t count = 5;
    Array batch = Array::from_shape({2, fftSize, count});
    OverlapAddSynthesizer single(2, fftSize, hop, blackman());
    Array expected = Array::from_shape({2, count * hop});
    for (std::uint32_t i = 0; i < count; ++i)
    {
        const Array frame = someFrame(2, i);
        xt::view(batch, xt::all(), xt::all(), i) = frame;
        xt::view(expected, xt::all(), xt::range(i * hop, (i + 1) * hop)) = single.process(frame);
    }
    OverlapAddSynthesizer batched(2, fftSize, hop, blackman());
    const Array out = batched.process(batch);
    ASSERT_EQ(shapeOf(out), shapeOf(expected));
    EXPECT_EQ(out, expected);
    EXPECT_EQ(batched.tail(), single.tail());
}

TEST(OverlapAddSynthesizer, AnEmptyBatchHasTwoRowsWhateverTheChannelCount)
{
    for (const std::size_t channels : {1U, 2U, 3U})
    {
        OverlapAddSynthesizer synthesizer(channels, fftSize, hop, blackman());
        const Array before = synthesizer.process(someFrame(channels, 1));
        const Array out = synthesizer.process(Array::from_shape({channels, fftSize, 0}));
        EXPECT_EQ(shapeOf(out), (std::vector<std::size_t>{2, 0}));
    }
}

TEST(OverlapAddSynthesizer, AHopOfTheFrameLengthOrMoreLeavesNoTail)
{
    for (const std::size_t longHop : {fftSize, fftSize + 16})
    {
        OverlapAddSynthesizer synthesizer(2, fftSize, longHop, blackman());
        Array batch = Array::from_shape({2, fftSize, 3});
        for (std::size_t i = 0; i < 3; ++i)
            xt::view(batch, xt::all(), xt::all(), i) = windowSpectrum(2);
        const Array out = synthesizer.process(batch);
        ASSERT_EQ(shapeOf(out), (std::vector<std::size_t>{2, 3 * fftSize})); // cut to what the frames gave
        for (std::size_t i = 0; i < 3; ++i)
            EXPECT_NEAR(out(1, i * fftSize + fftSize / 2), 1.0F, 1e-6);
        EXPECT_EQ(shapeOf(synthesizer.tail()), (std::vector<std::size_t>{2, 0}));
    }
}

TEST(OverlapAddSynthesizer, TheRowInterfaceGivesTheSameSamplesInPlace)
{
    OverlapAddSynthesizer arrays(2, fftSize, hop, blackman());
    OverlapAddSynthesizer rows(2, fftSize, hop, blackman());
    constexpr std::size_t stride = hop + 3;
    for (std::uint32_t i = 0; i < 4; ++i)
    {
        const Array frame = someFrame(2, i);
        const Array expected = arrays.process(frame);
        std::vector<float> target(2 * stride, -1.0F);
        for (std::size_t channel = 0; channel < 2; ++channel)
        {
            std::copy_n(frame.data() + channel * fftSize, fftSize, rows.inputRow().data());
            rows.addRow(channel);
        }
        rows.completeHop(target.data(), stride);
        for (std::size_t channel = 0; channel < 2; ++channel)
        {
            EXPECT_TRUE(samplesNear({target.data() + channel * stride, hop}, row(expected, channel), 0.0));
            EXPECT_EQ(target[channel * stride + hop], -1.0F); // nothing between the rows is written
        }
    }
}
