#include <algorithm>
#include <limits>
#include <stdexcept>

#include "spectral/PreProcessorFixture.h"
#include "support/LogCapture.h"

namespace
{

class PreProcessorFaults : public SmallPreProcessor
{
};

} // namespace

TEST_F(PreProcessorFaults, AFailedRunReturnsNothingAndIsLogged)
{
    model->model = failingModel();
    const LogCapture log;
    const Array result = process(*make(true), smoothNoise(channels, lengthOf(3), 1), true);
    EXPECT_EQ(result.dimension(), 0U);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"DEBUG [PreProcessor::process] Process signal: 96",
                                                     "ERROR [PreProcessor::process] Inference failed\n"}));
}

TEST_F(PreProcessorFaults, AfterAFailedFirstRunTheSegmentGoesOnAndTheNextCallCountsAsTheFirst)
{
    const auto preProcessor = make(true);
    const Array lost = smoothNoise(channels, lengthOf(2), 1);
    const Array next = smoothNoise(channels, lengthOf(3), 2);
    model->model = failingModel();
    const std::size_t longest = preProcessor->maxInputLength();
    process(*preProcessor, lost, false);
    EXPECT_EQ(preProcessor->maxInputLength(), longest);

    model->model = identityModel();
    const Array result = process(*preProcessor, next, false);
    ASSERT_EQ(shapeOf(result), (std::vector<std::size_t>{outputs, channels, 2 * fftSize}));
    for (std::size_t i = 0; i < 2; ++i)
    {
        EXPECT_TRUE(samplesNear(seenInSlot(1, 3 + i), spectrumAt(lost, 1, i * hop), tolerance));
        EXPECT_TRUE(samplesNear(returnedFrame(result, 0, 1, i), spectrumAt(next, 1, i * hop), tolerance));
    }
}

TEST_F(PreProcessorFaults, AfterALaterFailedRunTheFrameBeforeTheNextBlockIsReturnedWithIt)
{
    const auto preProcessor = make(true);
    process(*preProcessor, smoothNoise(channels, lengthOf(2), 1), false);
    model->model = failingModel();
    const Array lost = smoothNoise(channels, lengthOf(2), 2);
    process(*preProcessor, lost, false);
    model->model = identityModel();
    const Array next = smoothNoise(channels, lengthOf(2), 3);
    const Array result = process(*preProcessor, next, false);
    ASSERT_EQ(shapeOf(result), (std::vector<std::size_t>{outputs, channels, 2 * fftSize}));
    EXPECT_TRUE(samplesNear(returnedFrame(result, 0, 0, 0), spectrumAt(lost, 0, hop), tolerance));
    EXPECT_TRUE(samplesNear(returnedFrame(result, 0, 0, 1), spectrumAt(next, 0, 0), tolerance));
}

TEST_F(PreProcessorFaults, WhatTheModelThrowsPassesThrough)
{
    model->model = throwingModel();
    const auto preProcessor = make(true);
    EXPECT_THROW(process(*preProcessor, smoothNoise(channels, lengthOf(2), 1), false), std::runtime_error);
    EXPECT_EQ(preProcessor->maxInputLength(), (frames - 1) * hop + fftSize);
}

TEST_F(PreProcessorFaults, AModelThatWritesNothingAtFirstGivesSilence)
{
    model->model = idleModel();
    const Array result = process(*make(true), smoothNoise(channels, lengthOf(3), 1), true);
    EXPECT_TRUE(samplesNear({result.data(), result.size()}, std::vector<float>(result.size()), 0.0));
}

TEST_F(PreProcessorFaults, FramesWithSamplesThatAreNotFiniteAreSilentInTheirChannelOnly)
{
    for (const float bad : {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::infinity()})
        for (const std::size_t position : {std::size_t{0}, std::size_t{70}, lengthOf(6) - 1})
        {
            Array input = smoothNoise(channels, lengthOf(6), 1);
            const Array clean = input;
            input(1, position) = bad;
            const auto preProcessor = make(true);
            process(*preProcessor, smoothNoise(channels, lengthOf(frames), 2),
                    false); // no slot is empty before
            process(*preProcessor, input, false);
            for (std::size_t i = 0; i < 6; ++i)
            {
                const std::size_t start = i * hop;
                const bool touched = start <= position && position < start + fftSize;
                EXPECT_TRUE(samplesNear(seenInSlot(0, 2 + i), spectrumAt(clean, 0, start), tolerance));
                EXPECT_TRUE(samplesNear(seenInSlot(1, 2 + i), touched ? silence : spectrumAt(clean, 1, start),
                                        tolerance))
                    << bad << " at " << position << ", frame " << i;
            }
        }
}

TEST_F(PreProcessorFaults, FramesTooLoudForSinglePrecisionAreSilentToo)
{
    Array input = smoothNoise(channels, lengthOf(2), 1);
    std::fill_n(input.data(), lengthOf(2), std::numeric_limits<float>::max());
    process(*make(true), input, false);
    EXPECT_TRUE(samplesNear(seenInSlot(0, frames - 1), silence, 0.0));
    EXPECT_TRUE(samplesNear(seenInSlot(1, frames - 1), spectrumAt(input, 1, hop), tolerance));
}
