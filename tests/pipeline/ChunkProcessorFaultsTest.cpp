#include <cmath>
#include <limits>
#include <stdexcept>

#include "pipeline/ChunkProcessorFixture.h"

namespace
{

class ChunkProcessorFaults : public SmallPipeline
{
protected:
    static bool isSilent(const Array& result)
    {
        return std::all_of(result.begin(), result.end(), [](float sample) { return sample == 0.0F; });
    }
};

} // namespace

// Without frames only the synthesizers' 48 incomplete samples are left, from whose end 64 and the padding to
// whole hops are to be cut: -16 - padding, which counts from the end once more.
TEST_F(ChunkProcessorFaults, AFailureAtTheEndReturnsWhatTheNegativeLengthLeaves)
{
    model->model = failingModel();
    for (const auto& [length, returned] :
         std::vector<std::pair<std::size_t, std::size_t>>{{96, 32}, {100, 20}, {97, 17}})
    {
        ChunkProcessor processor = make();
        const Array result = processor.process(smoothNoise(channels, length, 1), true);
        EXPECT_EQ(shapeOf(result), (std::vector<std::size_t>{stems + 1, channels, returned})) << length;
        EXPECT_TRUE(isSilent(result));
    }

    ChunkProcessor processor = make();
    model->model = identityModel();
    processor.process(smoothNoise(channels, firstReady, 1), false);
    model->model = failingModel();
    const Array result = processor.process(smoothNoise(channels, 36, 1), true); // with the kept samples 100
    EXPECT_EQ(shapeOf(result), (std::vector<std::size_t>{stems + 1, channels, 20}));
    EXPECT_TRUE(isSilent(result));
}

TEST_F(ChunkProcessorFaults, AFailureOfTheFirstChunkReturnsAnEmptyResultAndTheStreamGoesOn)
{
    model->model = failingModel();
    ChunkProcessor processor = make();
    const Array signal = smoothNoise(channels, firstReady + 176, 1);
    EXPECT_EQ(shapeOf(processor.process(timeSlice(signal, 0, firstReady), false)),
              (std::vector<std::size_t>{stems + 1, channels, 0}));
    EXPECT_EQ(processor.readyThreshold(), firstReady) << "the model has not run yet";

    model->model = identityModel();
    const Array result = processor.process(timeSlice(signal, firstReady, 176), false);
    // 240 samples again, of which the first hop is dropped: 11 frames, one held back. The chunk begins with
    // sample 176.
    ASSERT_EQ(lastExtent(result), 160U);
    EXPECT_TRUE(samplesNear(row(result, stems, 0), row(signal, 0).subspan(176, 160), 0.0));
}

TEST_F(ChunkProcessorFaults, AfterAFailureInMidStreamTheStemsAreBackOnceThreeHopsHavePassed)
{
    for (const bool throwing : {false, true})
    {
        model->model = identityModel();
        ChunkProcessor processor = make();
        const Array signal = smoothNoise(channels, firstReady + 2 * laterReady, 1);
        ASSERT_EQ(lastExtent(processor.process(timeSlice(signal, 0, firstReady), false)), 176U);

        const Array lost = timeSlice(signal, firstReady, laterReady);
        if (throwing)
        {
            model->model = throwingModel();
            EXPECT_THROW(processor.process(lost, false), std::runtime_error);
        }
        else
        {
            model->model = failingModel();
            EXPECT_EQ(shapeOf(processor.process(lost, false)),
                      (std::vector<std::size_t>{stems + 1, channels, 0}));
        }

        model->model = identityModel();
        const Array result = processor.process(timeSlice(signal, firstReady + laterReady, laterReady), false);
        ASSERT_EQ(lastExtent(result), laterReady);
        for (std::size_t channel = 0; channel < channels; ++channel)
        {
            const auto expected = row(signal, channel).subspan(176 + 208, laterReady);
            EXPECT_TRUE(samplesNear(row(result, stems, channel), expected, 0.0));
            // What little the test signal has near half the sample rate is lost, and rounding.
            EXPECT_TRUE(samplesNear(row(result, 0, channel).subspan(48), expected.subspan(48), 3e-5));
        }
    }
}

TEST_F(ChunkProcessorFaults, SamplesThatAreNotFiniteReachNoFurtherThanTheFramesThatHoldThem)
{
    constexpr std::size_t length = 900;
    const Array clean = smoothNoise(channels, length, 1);
    ChunkProcessor untouched = make();
    const Array expected = joined(feedReadyBlocks(untouched, clean));
    for (const float bad : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()})
        // At the stream's ends, within and just beside the joins of chunks, and in a chunk.
        for (const std::size_t position : {0U, 1U, 30U, 175U, 176U, 239U, 240U, 300U, 500U, 840U, 899U})
        {
            SCOPED_TRACE(std::to_string(bad) + " at " + std::to_string(position));
            Array signal = clean;
            signal(1, position) = bad;
            ChunkProcessor processor = make();
            const Array result = joined(feedReadyBlocks(processor, signal));
            ASSERT_EQ(shapeOf(result), shapeOf(expected));
            EXPECT_TRUE(samplesNear(row(result, 0, 0), row(expected, 0, 0), 0.0)) << "the other channel";
            for (std::size_t i = 0; i < length; ++i)
            {
                const std::size_t distance = i > position ? i - position : position - i;
                const float stem = result(0, 1, i);
                ASSERT_TRUE(std::isfinite(stem)) << i;
                if (distance >= fftSize)
                {
                    ASSERT_EQ(stem, expected(0, 1, i)) << i;
                }
                ASSERT_EQ(std::isfinite(result(stems, 1, i)), i != position) << i;
            }
        }
}

TEST_F(ChunkProcessorFaults, DigitalSilenceGivesExactZeros)
{
    model->model = gainModel({0.5F, 0.3F, 0.2F});
    ChunkProcessor processor = make();
    const Array result = joined(feedReadyBlocks(processor, xt::zeros<float>({channels, std::size_t{700}})));
    EXPECT_EQ(lastExtent(result), 700U);
    EXPECT_TRUE(isSilent(result));
}
