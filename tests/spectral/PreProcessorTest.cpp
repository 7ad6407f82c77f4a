#include "spectral/PreProcessor.h"

#include "spectral/PreProcessorFixture.h"

namespace
{

class PreProcessorFrames : public SmallPreProcessor
{
};

} // namespace

TEST_F(PreProcessorFrames, TheModelSeesWindowedFramesOldestFirstAndEndingWithTheInput)
{
    const Array input = smoothNoise(channels, lengthOf(3) + 5, 1); // 5 samples too many for whole hops
    process(*make(true), input, false);

    EXPECT_EQ(model->runs, 1U);
    EXPECT_EQ(model->lastShape, (FakeInference::Shape{1, 2 * channels, frames, bins}));
    EXPECT_EQ(model->lastOutputCount, outputs);
    for (std::size_t channel = 0; channel < channels; ++channel)
    {
        for (std::size_t slot = 0; slot < frames - 3; ++slot)
            EXPECT_TRUE(samplesNear(seenInSlot(channel, slot), silence, 0.0)) << "slot " << slot;
        for (std::size_t i = 0; i < 3; ++i)
            EXPECT_TRUE(samplesNear(seenInSlot(channel, frames - 3 + i),
                                    spectrumAt(input, channel, 5 + i * hop), tolerance))
                << "channel " << channel << ", frame " << i;
        for (std::size_t slot = 0; slot < frames; ++slot)
            EXPECT_EQ(seenInSlot(channel, slot)[1], 0.0F) << "imaginary part of DC, slot " << slot;
    }
}

TEST_F(PreProcessorFrames, EarlierFramesMoveToTheLeftAsNewOnesCome)
{
    const auto preProcessor = make(true);
    const Array first = smoothNoise(channels, lengthOf(5), 1);
    const Array second = smoothNoise(channels, lengthOf(2), 2);
    process(*preProcessor, first, false);
    process(*preProcessor, second, false);
    for (std::size_t channel = 0; channel < channels; ++channel)
    {
        EXPECT_TRUE(samplesNear(seenInSlot(channel, 0), silence, 0.0));
        for (std::size_t i = 0; i < 5; ++i)
            EXPECT_TRUE(
                samplesNear(seenInSlot(channel, 1 + i), spectrumAt(first, channel, i * hop), tolerance))
                << i;
        for (std::size_t i = 0; i < 2; ++i)
            EXPECT_TRUE(
                samplesNear(seenInSlot(channel, 6 + i), spectrumAt(second, channel, i * hop), tolerance))
                << i;
    }
}

TEST_F(PreProcessorFrames, ABlockThatFillsTheSegmentLeavesNothingOfTheOneBefore)
{
    for (const std::size_t count : {frames, frames + 3}) // beyond a segment only the newest frames count
    {
        const auto preProcessor = make(true);
        process(*preProcessor, smoothNoise(channels, lengthOf(3), 1), false);
        const Array input = smoothNoise(channels, lengthOf(count), 2);
        process(*preProcessor, input, false);
        for (std::size_t channel = 0; channel < channels; ++channel)
            for (std::size_t slot = 0; slot < frames; ++slot)
                EXPECT_TRUE(samplesNear(seenInSlot(channel, slot),
                                        spectrumAt(input, channel, (count - frames + slot) * hop), tolerance))
                    << "slot " << slot << " of " << count;
    }
}

TEST_F(PreProcessorFrames, TheNewestFrameIsHeldBackAndReturnedByTheNextCall)
{
    const auto preProcessor = make(true);
    const Array first = smoothNoise(channels, lengthOf(4), 1);
    const Array second = smoothNoise(channels, lengthOf(2), 2);
    const Array third = smoothNoise(channels, lengthOf(3), 3);

    const Array firstResult = process(*preProcessor, first, false);
    const Array secondResult = process(*preProcessor, second, false);
    const Array lastResult = process(*preProcessor, third, true);
    ASSERT_EQ(shapeOf(firstResult), (std::vector<std::size_t>{outputs, channels, 3 * fftSize}));
    ASSERT_EQ(shapeOf(secondResult), (std::vector<std::size_t>{outputs, channels, 2 * fftSize}));
    ASSERT_EQ(shapeOf(lastResult), (std::vector<std::size_t>{outputs, channels, 4 * fftSize}));

    for (std::size_t channel = 0; channel < channels; ++channel)
    {
        const auto expectFrame =
            [&](const Array& result, std::size_t index, const Array& source, std::size_t frame)
        {
            EXPECT_TRUE(samplesNear(returnedFrame(result, 0, channel, index),
                                    spectrumAt(source, channel, frame * hop), tolerance))
                << "channel " << channel << ", frame " << index;
        };
        for (std::size_t i = 0; i < 3; ++i)
            expectFrame(firstResult, i, first, i);
        expectFrame(secondResult, 0, first, 3);
        expectFrame(secondResult, 1, second, 0);
        expectFrame(lastResult, 0, second, 1);
        for (std::size_t i = 0; i < 3; ++i)
            expectFrame(lastResult, 1 + i, third, i);
    }
}

TEST_F(PreProcessorFrames, SkippedSamplesCountAsIfTheyWereNotThere)
{
    const auto preProcessor = make(true);
    const Array input = smoothNoise(channels, lengthOf(4) + 3, 1);
    const Array result = process(*preProcessor, input, true, hop + 3);
    ASSERT_EQ(shapeOf(result), (std::vector<std::size_t>{outputs, channels, 3 * fftSize}));
    for (std::size_t channel = 0; channel < channels; ++channel)
    {
        EXPECT_TRUE(samplesNear(seenInSlot(channel, frames - 4), silence, 0.0));
        for (std::size_t i = 0; i < 3; ++i)
            EXPECT_TRUE(samplesNear(returnedFrame(result, 0, channel, i),
                                    spectrumAt(input, channel, 3 + (1 + i) * hop), tolerance))
                << "channel " << channel << ", frame " << i;
    }
    // More than there is: no new frame, and none that could be returned.
    const Array none = process(*preProcessor, input, false, input.shape(1) + 1);
    EXPECT_EQ(shapeOf(none), (std::vector<std::size_t>{outputs, channels, 0}));
    EXPECT_TRUE(samplesNear(seenInSlot(0, frames - 1), spectrumAt(input, 0, 3 + 3 * hop), tolerance));
}

TEST_F(PreProcessorFrames, OneFrameGivesNothingYetUnlessTheStreamEnds)
{
    const Array input = smoothNoise(channels, fftSize, 1);
    EXPECT_EQ(shapeOf(process(*make(true), input, false)), (std::vector<std::size_t>{outputs, channels, 0}));
    for (std::size_t channel = 0; channel < channels; ++channel)
        EXPECT_TRUE(samplesNear(seenInSlot(channel, frames - 1), spectrumAt(input, channel, 0), tolerance));

    const Array last = process(*make(true), input, true);
    ASSERT_EQ(shapeOf(last), (std::vector<std::size_t>{outputs, channels, fftSize}));
    EXPECT_TRUE(samplesNear(row(last, 0, 1), spectrumAt(input, 1, 0), tolerance));
}

TEST_F(PreProcessorFrames, WithoutEdgeFramesEveryCallReturnsItsOwnFrames)
{
    const auto preProcessor = make(false);
    const std::size_t longest = (frames - 1) * hop + fftSize;
    EXPECT_EQ(preProcessor->maxInputLength(), longest);
    for (const bool eof : {false, false, true})
    {
        const Array input = smoothNoise(channels, lengthOf(2), 4);
        const Array result = process(*preProcessor, input, eof);
        ASSERT_EQ(shapeOf(result), (std::vector<std::size_t>{outputs, channels, 2 * fftSize}));
        for (std::size_t i = 0; i < 2; ++i)
            EXPECT_TRUE(
                samplesNear(returnedFrame(result, 0, 1, i), spectrumAt(input, 1, i * hop), tolerance));
        EXPECT_EQ(preProcessor->maxInputLength(), longest);
    }
}

TEST_F(PreProcessorFrames, TheLongestBlockShrinksByTwoHopsOnceTheModelHasRun)
{
    const auto small = make(true);
    EXPECT_EQ(small->maxInputLength(), (frames - 1) * hop + fftSize);
    process(*small, smoothNoise(channels, lengthOf(1), 1), false);
    EXPECT_EQ(small->maxInputLength(), (frames - 3) * hop + fftSize);

    PreProcessor full(1, 4096, 1024, makeWindow(WindowType::Blackman, 4096), model, 256, true, 1);
    EXPECT_EQ(full.maxInputLength(), 265216U);
    full.process(smoothNoise(1, 4096, 1), false);
    EXPECT_EQ(full.maxInputLength(), 263168U);
}

TEST_F(PreProcessorFrames, EveryOutputPlaneArrivesInItsPlaceOfThePackedSpectra)
{
    // Each value tells its output, plane, frame and bin.
    model->model = [](std::span<const float>, const std::vector<float*>& buffers, const FakeInference::Shape&)
    {
        for (std::size_t output = 0; output < buffers.size(); ++output)
            for (std::size_t i = 0; i < 2 * channels * frames * bins; ++i)
                buffers[output][i] = static_cast<float>(10000 * output + i);
        return true;
    };
    const Array result = process(*make(true), smoothNoise(channels, lengthOf(3), 1), false);
    ASSERT_EQ(shapeOf(result), (std::vector<std::size_t>{outputs, channels, 2 * fftSize}));
    for (std::size_t output = 0; output < outputs; ++output)
        for (std::size_t channel = 0; channel < channels; ++channel)
            for (std::size_t frame = 0; frame < 2; ++frame)
                for (std::size_t k = 0; k < bins; ++k)
                {
                    const std::size_t slot = frames - 3 + frame;
                    const std::size_t real = 10000 * output + (2 * channel * frames + slot) * bins + k;
                    const auto packed = returnedFrame(result, output, channel, frame);
                    ASSERT_EQ(packed[2 * k], static_cast<float>(real));
                    ASSERT_EQ(packed[2 * k + 1], static_cast<float>(real + frames * bins));
                }
}
