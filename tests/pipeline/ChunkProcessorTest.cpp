#include "pipeline/ChunkProcessor.h"

#include <optional>
#include <stdexcept>
#include <string>

#include "pipeline/ChunkProcessorFixture.h"
#include "support/LogCapture.h"

namespace
{

/// One call: what is fed, and how many samples come back per row (or no result).
struct Call
{
    std::size_t samples;
    bool eof;
    std::optional<std::size_t> returned;
};

using Calls = std::vector<Call>;

class ChunkProcessorCalls : public ::testing::TestWithParam<Calls>
{
};

class ChunkProcessorFullSize : public FullPipeline
{
};

class ChunkProcessorSmall : public SmallPipeline
{
};

Array silence(std::size_t length)
{
    return xt::zeros<float>({std::size_t{2}, length});
}

std::string failure(ChunkProcessor& processor, const Array& input)
{
    try
    {
        processor.process(input, false);
    }
    catch (const std::runtime_error& error)
    {
        return error.what();
    }
    return "accepted";
}

constexpr std::nullopt_t nothing = std::nullopt;

} // namespace

INSTANTIATE_TEST_SUITE_P(
    ChunkProcessor, ChunkProcessorCalls,
    ::testing::Values(
        // Blocks of the threshold, then an empty end.
        Calls{{257024, false, 252928},
              {254976, false, 254976},
              {254976, false, 254976},
              {0, true, 4096},
              {0, true, nothing}},
        // The largest chunks.
        Calls{{261120, false, 257024}, {259072, false, 259072}, {259072, false, 259072}, {0, true, 4096}},
        // One sample short of the threshold, at first and later.
        Calls{{257023, false, nothing},
              {1, false, 252928},
              {250879, false, nothing},
              {1, false, 250880},
              {1, true, 4097}},
        // More than a chunk takes stays for later calls, down to less than the threshold.
        Calls{{514048, false, 257024}, {0, false, 252928}, {0, false, nothing}, {0, true, 4096}},
        Calls{{300000, false, 257024}, {212000, false, 250880}, {0, true, 4096}},
        // Everything that is held comes back at the end, in as many passes as it takes.
        Calls{{200000, false, nothing}, {200000, true, 400000}, {0, true, nothing}},
        Calls{{514048, true, 514048}}, Calls{{257024, true, 257024}}, Calls{{257025, true, 257025}},
        Calls{{261120, false, 257024}, {509952, true, 514048}},
        // Short streams, and none at all.
        Calls{{1, true, 1}, {0, true, nothing}}, Calls{{4096, true, 4096}},
        Calls{{0, false, nothing}, {0, true, nothing}, {0, true, nothing}}));

TEST_P(ChunkProcessorCalls, ResultsComeInExactlyTheseCallsWithExactlyTheseLengths)
{
    ChunkProcessor processor(std::make_shared<FakeInference>(identityModel()), 2, 4096, 1024, 0, 256, 1);
    std::size_t index = 0;
    for (const Call& call : GetParam())
    {
        const Array result = processor.process(silence(call.samples), call.eof);
        if (call.returned)
            EXPECT_EQ(shapeOf(result), (std::vector<std::size_t>{2, 2, *call.returned})) << "call " << index;
        else
            EXPECT_EQ(result.dimension(), 0U) << "call " << index;
        ++index;
    }
}

TEST_F(ChunkProcessorFullSize, TheThresholdFallsOnceTheModelHasRun)
{
    EXPECT_EQ(processor.readyThreshold(), 257024U);
    processor.process(silence(257023), false);
    EXPECT_EQ(processor.readyThreshold(), 257024U);
    processor.process(silence(1), false);
    EXPECT_EQ(processor.readyThreshold(), 254976U);
    EXPECT_EQ(model->runs, 1U);
    EXPECT_EQ(model->lastShape, (FakeInference::Shape{1, 4, 256, 2048}));
}

TEST_F(ChunkProcessorFullSize, ABlockThatDoesNotFitIsRefusedAndTheStreamGoesOn)
{
    EXPECT_EQ(failure(processor, silence(514049)), "Buffer overflow: cannot accept chunk of size 514049");
    const Array signal = smoothNoise(channels, 257024, 1);
    EXPECT_EQ(lastExtent(processor.process(signal, false)), 252928U);
    EXPECT_EQ(failure(processor, silence(509953)), "Buffer overflow: cannot accept chunk of size 509953");
    const Array rest = processor.process(silence(0), true);
    ASSERT_EQ(lastExtent(rest), 4096U);
    for (std::size_t channel = 0; channel < channels; ++channel)
        EXPECT_TRUE(samplesNear(row(rest, 1, channel), row(signal, channel).last(4096), 0.0));
}

TEST_F(ChunkProcessorSmall, WaitingForMoreInputIsLogged)
{
    ChunkProcessor processor = make();
    const LogCapture log(plog::debug);
    for (const std::size_t count : {firstReady - 1, std::size_t{0}})
        EXPECT_EQ(processor.process(silence(count), false).dimension(), 0U);
    const std::string start = "DEBUG [ChunkProcessor::process] ";
    const std::string waiting = start + "Not enough data to process, returning empty";
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               start + "ChunkProcessor::process input shape: 2x239, eof: 0", waiting,
                               start + "ChunkProcessor::process input shape: 2x0, eof: 0", waiting}));
}

TEST_F(ChunkProcessorSmall, AFirstChunkLouderThanElevenTenthsIsLoggedOnce)
{
    const std::string start = "INFO [ChunkProcessor::process] MAX2: ";
    const std::vector<std::pair<float, std::vector<std::string>>> cases{
        {1.1F, {}}, {1.1001F, {start + "1.1001"}}, {-1.5F, {start + "1.5"}}};
    for (const auto& [peak, expected] : cases)
        for (const bool eof : {false, true})
        {
            ChunkProcessor processor = make();
            Array input = silence(firstReady);
            input(1, 100) = peak;
            const LogCapture log;
            processor.process(input, eof);
            EXPECT_EQ(log.lines(plog::info), expected) << peak;
        }

    ChunkProcessor processor = make();
    const LogCapture log;
    processor.process(silence(firstReady), false);
    Array loud = silence(laterReady);
    loud(0, 0) = 2.0F;
    processor.process(loud, false);
    EXPECT_TRUE(log.lines(plog::info).empty()) << "only the first chunk counts";
}

// A processor serves one stream, but a host that goes on after its end does no damage.
TEST_F(ChunkProcessorSmall, WhatIsFedAfterTheEndComesBackInItsLength)
{
    for (std::size_t length = 1; length <= capacity; ++length)
    {
        ChunkProcessor processor = make();
        processor.process(smoothNoise(channels, 100, 1), true);
        const Array signal = smoothNoise(channels, length, 2);
        const Array result = processor.process(signal, true);
        ASSERT_EQ(shapeOf(result), (std::vector<std::size_t>{stems + 1, channels, length}));
        for (std::size_t channel = 0; channel < channels; ++channel)
            EXPECT_TRUE(samplesNear(row(result, stems, channel), row(signal, channel), 0.0)) << length;
    }
}

TEST_F(ChunkProcessorSmall, BlocksOfAnotherChannelCountAreRefusedAndTheStreamGoesOn)
{
    ChunkProcessor processor = make();
    const Array signal = smoothNoise(channels, 100, 1);
    EXPECT_EQ(processor.process(signal, false).dimension(), 0U);
    EXPECT_THROW(processor.process(xt::zeros<float>({3, 50}), false), std::exception);
    EXPECT_THROW(processor.process(xt::zeros<float>({3, 50}), true), std::exception);
    expectSignal(processor.process(silence(0), true), signal);
}
