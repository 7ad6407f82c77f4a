// SPDX-License-Identifier: MIT
#include "spectral/PreProcessor.h"

#include <cstddef>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "spectral/WindowFunctions.h"
#include "support/FakeInference.h"
#include "support/ReferenceTransform.h"
#include "support/Signals.h"

namespace
{

using Sizes = std::vector<std::size_t>;

/// Two channels, frames of 64 samples 16 apart, segments of 8 frames and 3 outputs: the input itself,
/// nothing, and the input times 2.
class PreProcessorFrames : public ::testing::Test
{
protected:
    static constexpr std::size_t channels = 2;
    static constexpr std::size_t fftSize = 64;
    static constexpr std::size_t hop = 16;
    static constexpr std::size_t frames = 8;
    static constexpr std::size_t outputs = 3;
    static constexpr std::size_t bins = fftSize / 2;
    /// Rounding of a 64-point transform of windowed samples up to 0.5, whose values reach 13.
    static constexpr double tolerance = 1e-5;

    PreProcessor make(bool keepEdgeFrames) const
    {
        return {channels, fftSize,        hop,    makeWindow(WindowType::Blackman, fftSize), model,
                frames,   keepEdgeFrames, outputs};
    }

    /// Runs one chunk and packs the spectra that come back as {outputs, channels, frames * fftSize}.
    static Array process(PreProcessor& preProcessor, const Array& input, bool eof)
    {
        const StemSpectra spectra = preProcessor.process(rowsOf(input), eof);
        Array packed = Array::from_shape({outputs, channels, spectra.frameCount() * fftSize});
        for (std::size_t output = 0; output < outputs; ++output)
            for (std::size_t channel = 0; channel < channels; ++channel)
                for (std::size_t frame = 0; frame < spectra.frameCount(); ++frame)
                    spectra.packFrame(output, channel, frame,
                                      {&packed(output, channel, frame * fftSize), fftSize});
        return packed;
    }

    /// Noise that holds this many frames.
    static Array noiseOf(std::size_t frameCount, std::uint32_t seed, std::size_t more = 0)
    {
        return smoothNoise(channels, fftSize + (frameCount - 1) * hop + more, seed);
    }

    static std::vector<float> spectrumAt(const Array& input, std::size_t channel, std::size_t start)
    {
        return packedSpectrum(row(input, channel).subspan(start, fftSize), referenceWindow(fftSize));
    }

    /// Expects that the model saw the frame of `input` that begins at `start` in one slot of its segment.
    void expectSeen(std::size_t slot, const Array& input, std::size_t start) const
    {
        for (std::size_t channel = 0; channel < channels; ++channel)
        {
            std::vector<float> seen(fftSize);
            for (std::size_t k = 0; k < bins; ++k)
            {
                seen[2 * k] = model->lastInput[(2 * channel * frames + slot) * bins + k];
                seen[2 * k + 1] = model->lastInput[((2 * channel + 1) * frames + slot) * bins + k];
            }
            EXPECT_TRUE(samplesNear(seen, spectrumAt(input, channel, start), tolerance))
                << "slot " << slot << ", channel " << channel;
            EXPECT_EQ(seen[1], 0.0F) << "imaginary part of DC, slot " << slot;
        }
    }

    /// Expects the frame of `input` that begins at `start` at a place of a result.
    static void expectReturned(const Array& result, std::size_t index, const Array& input, std::size_t start)
    {
        for (std::size_t channel = 0; channel < channels; ++channel)
            EXPECT_TRUE(samplesNear(row(result, 0, channel).subspan(index * fftSize, fftSize),
                                    spectrumAt(input, channel, start), tolerance))
                << "frame " << index << ", channel " << channel;
    }

    std::shared_ptr<FakeInference> model =
        std::make_shared<FakeInference>(recipeModel({{0.0, 1.0, 0.0}, {0.0, 0.0, 0.0}, {0.0, 2.0, 0.0}}));
};

TEST_F(PreProcessorFrames, TheModelSeesWindowedFramesOldestFirstAndEndingWithTheInput)
{
    PreProcessor preProcessor = make(true);
    const Array silence = xt::zeros<float>({channels, fftSize});
    const Array first = noiseOf(3, 1, 5); // 5 samples too many for whole hops
    process(preProcessor, first, false);
    EXPECT_EQ(model->lastShape, (FakeInference::Shape{1, 2 * channels, frames, bins}));
    expectSeen(frames - 4, silence, 0);
    for (std::size_t i = 0; i < 3; ++i)
        expectSeen(frames - 3 + i, first, 5 + i * hop);

    const Array second = noiseOf(2, 2);
    process(preProcessor, second, false);
    expectSeen(frames - 6, silence, 0);
    for (std::size_t i = 0; i < 3; ++i)
        expectSeen(frames - 5 + i, first, 5 + i * hop);
    for (std::size_t i = 0; i < 2; ++i)
        expectSeen(frames - 2 + i, second, i * hop);

    for (const std::size_t count : {frames, frames + 3}) // beyond a segment only the newest frames count
    {
        const Array full = noiseOf(count, 3);
        process(preProcessor, full, false);
        for (std::size_t slot = 0; slot < frames; ++slot)
            expectSeen(slot, full, (count - frames + slot) * hop);
    }
}

TEST_F(PreProcessorFrames, TheNewestFrameIsHeldBackAndReturnedByTheNextCall)
{
    PreProcessor preProcessor = make(true);
    const Array first = noiseOf(4, 1);
    const Array second = noiseOf(2, 2);
    const Array third = noiseOf(3, 3);
    const Array firstResult = process(preProcessor, first, false);
    const Array secondResult = process(preProcessor, second, false);
    const Array lastResult = process(preProcessor, third, true);
    ASSERT_EQ(shapeOf(firstResult), (Sizes{outputs, channels, 3 * fftSize}));
    ASSERT_EQ(shapeOf(secondResult), (Sizes{outputs, channels, 2 * fftSize}));
    ASSERT_EQ(shapeOf(lastResult), (Sizes{outputs, channels, 4 * fftSize}));
    for (std::size_t i = 0; i < 3; ++i)
    {
        expectReturned(firstResult, i, first, i * hop);
        expectReturned(lastResult, 1 + i, third, i * hop);
    }
    expectReturned(secondResult, 0, first, 3 * hop);
    expectReturned(secondResult, 1, second, 0);
    expectReturned(lastResult, 0, second, hop);

    PreProcessor waiting = make(true);
    PreProcessor ending = make(true);
    EXPECT_EQ(shapeOf(process(waiting, noiseOf(1, 4), false)), (Sizes{outputs, channels, 0}));
    EXPECT_EQ(shapeOf(process(ending, noiseOf(1, 4), true)), (Sizes{outputs, channels, fftSize}));
}

TEST_F(PreProcessorFrames, WithoutEdgeFramesEveryCallReturnsItsOwnFrames)
{
    PreProcessor preProcessor = make(false);
    for (const bool eof : {false, false, true})
    {
        const Array input = noiseOf(2, 4);
        const Array result = process(preProcessor, input, eof);
        ASSERT_EQ(shapeOf(result), (Sizes{outputs, channels, 2 * fftSize}));
        for (std::size_t i = 0; i < 2; ++i)
            expectReturned(result, i, input, i * hop);
        EXPECT_EQ(preProcessor.maxInputLength(), (frames - 1) * hop + fftSize);
    }
}

} // namespace
