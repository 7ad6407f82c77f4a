// Runs that fail, samples that are no numbers, configurations that make no sense.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "boundary/Streaming.h"

namespace
{

constexpr std::size_t firstEnd = 252928;  // of what the first block of maxInputSize() returns
constexpr std::size_t secondEnd = 507904; // of what the second one returns
constexpr std::size_t frame = 4096;

TEST(FailedRun, SilencesItsChunkAndTheStreamGoesOn)
{
    constexpr std::size_t length = 900000;
    Stereo input = noise(length);
    input.left[357024] = 1e6F; // in the second block; beyond what this model bears

    ::testing::internal::CaptureStdout();
    Stream stream(loadContext("fail_on_request.onnx"));
    stream.feedAll(input);
    const std::string log = ::testing::internal::GetCapturedStdout();

    EXPECT_EQ(stream.result().lengths, (std::vector<std::size_t>{firstEnd, 254976, 254976, 137120}));
    for (std::size_t i = 0; i < modelGains.size(); ++i)
    {
        const Stereo& stem = stream.stem(i);
        ASSERT_EQ(stem.size(), length);
        // The frames at the joins overlap their neighbours' chunks by less than a frame length.
        EXPECT_EQ(largestDifference(stem, silence(length), firstEnd + frame, secondEnd), 0) << "stem " << i;
        for (const auto& [first, last] :
             {std::pair{frame, firstEnd}, std::pair{secondEnd + frame, length - frame}})
            EXPECT_LE(differenceToScaled(slice(stem, first, last - first), modelGains[i],
                                         slice(input, first, last - first)),
                      1e-6F)
                << "stem " << i << " from " << first; // rounding only
        EXPECT_LE(largestDifference(stem, silence(length)), 1.0F) << "nothing loud at the joins";
    }
    EXPECT_EQ(largestDifference(stream.stem(residual), input, firstEnd + frame, secondEnd), 0);

    const std::string line = "[INFERENCE_onnx] Exception during inference: ";
    EXPECT_NE(log.find(line), std::string::npos);
    EXPECT_EQ(log.find(line), log.rfind(line)) << "one failure, one line";
}

// Only the runtime knows why; for the host such a model is one whose every run fails.
TEST(WrongInterface, GivesSilenceOrAnExceptionButNoDamage)
{
    const Stereo input = noise(260000);
    for (const std::string model : {"missing_output", "missing_flag", "extra_input", "wrong_type",
                                    "small_segment", "mono", "sequence_output"})
    {
        const StreamResult result = separate(loadContext("wrong/" + model + ".onnx"), input);
        EXPECT_EQ(largestDifference(result.stems[mix], silence(input.size())), 0) << model;
        EXPECT_EQ(largestDifference(result.stems[residual], input), 0) << model;
    }

    Stream unbound(loadContext("wrong/dynamic_output_shape.onnx"));
    for (int attempt = 0; attempt < 2; ++attempt)
    {
        try
        {
            unbound.feed(slice(input, 0, 1000), true);
            ADD_FAILURE() << "no exception";
        }
        catch (const std::exception& failure)
        {
            EXPECT_STRNE(failure.what(), "");
        }
        EXPECT_EQ(unbound.feed(slice(input, 0, 1000)), 0U) << "too little to run the model is still taken";
    }
}

bool isFinite(const Stereo& signal)
{
    const auto finite = [](float value) { return std::isfinite(value); };
    return std::all_of(signal.left.begin(), signal.left.end(), finite) &&
           std::all_of(signal.right.begin(), signal.right.end(), finite);
}

TEST(UnusualSamples, StayWithinTheFramesThatTouchThem)
{
    const Stereo input = noise(520000);
    const auto context = loadContext("gains.onnx");
    const StreamResult clean = separate(context, input);
    const std::size_t length = input.size();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    for (const auto& [position, value] :
         {std::pair{std::size_t{0}, nan}, std::pair{std::size_t{2000}, -infinity},
          std::pair{std::size_t{100000}, infinity}, std::pair{firstEnd - 1, nan},
          std::pair{firstEnd + 10, infinity}, std::pair{length - 1, nan}})
    {
        Stereo damaged = input;
        damaged.left[position] = value;
        const StreamResult result = separate(context, damaged);
        const std::size_t first = position - std::min(position, frame - 1);
        const std::size_t last = std::min(position + frame, length);
        for (std::size_t i = 0; i < stemCount; ++i)
        {
            EXPECT_EQ(result.stems[i].right, clean.stems[i].right) << "stem " << i << ", " << position;
            EXPECT_EQ(isFinite(result.stems[i]), i != residual) << "stem " << i << ", " << position;
            for (const auto& [from, to] : {std::pair{std::size_t{0}, first}, std::pair{last, length}})
                EXPECT_EQ(largestDifference(result.stems[i], clean.stems[i], from, to), 0)
                    << "stem " << i << ", " << position;
        }
        EXPECT_FALSE(std::isfinite(result.stems[residual].left[position]));
        Stereo rest = result.stems[residual];
        rest.left[position] = 0.0F;
        EXPECT_TRUE(isFinite(rest)) << position;
    }
}

TEST(UnusualSamples, ABlockFullOfThemIsSilence)
{
    const Stereo input = noise(600000);
    Stereo damaged = input;
    for (auto* channel : {&damaged.left, &damaged.right})
        std::fill(channel->begin() + 300000, channel->begin() + 400000,
                  std::numeric_limits<float>::quiet_NaN());
    const StreamResult result = separate(loadContext("neighbours.onnx"), damaged);
    for (std::size_t i = 0; i < stemCount; ++i)
        EXPECT_EQ(isFinite(result.stems[i]), i != residual) << "stem " << i;
    // The model looks at one more frame, a hop before and after the damaged ones.
    constexpr std::size_t reach = frame + 1024;
    EXPECT_LE(largestDifference(result.stems[mix], input, frame, 300000 - reach), 1e-6F);
    EXPECT_LE(largestDifference(result.stems[mix], input, 400000 + reach, 600000 - frame), 1e-6F);
    EXPECT_EQ(largestDifference(result.stems[mix], silence(600000), 300000 + reach, 400000 - reach), 0);
}

// Such a sample is finite, but what is computed from it need not be.
TEST(UnusualSamples, TheLargestFloatHarmsNothingBeyondItsFrames)
{
    Stereo input = noise(300000);
    const auto context = loadContext("gains.onnx");
    const StreamResult clean = separate(context, input);
    input.right[200000] = std::numeric_limits<float>::max();
    const StreamResult result = separate(context, input);
    for (std::size_t i = 0; i < stemCount; ++i)
    {
        EXPECT_EQ(result.stems[i].left, clean.stems[i].left) << "stem " << i;
        EXPECT_EQ(largestDifference(result.stems[i], clean.stems[i], 0, 200000 - frame), 0) << "stem " << i;
        EXPECT_EQ(largestDifference(result.stems[i], clean.stems[i], 200000 + frame), 0) << "stem " << i;
    }
}

TEST(UnusualSamples, SamplesBeyondFullScaleAreSeparatedLikeOthers)
{
    Stereo input = noise(20000);
    for (auto* channel : {&input.left, &input.right})
        for (float& sample : *channel)
            sample *= 1000.0F;
    const StreamResult result = separate(loadContext("gains.onnx"), input);
    EXPECT_LE(largestDifference(result.stems[mix], input, frame, 20000 - frame),
              1e-3F); // 1e-6 of the amplitude
}

/// Whether a processor with that many channels is refused, by its constructor or by its first call.
::testing::AssertionResult isRefused(std::shared_ptr<tonwerk::InferenceContext> context,
                                     std::int32_t channels, bool interleaved, std::size_t floats)
{
    tonwerk::TonwerkProcConfig config = allStems(interleaved);
    config.channels = channels;
    try
    {
        tonwerk::TonwerkProc processor(std::move(context), config);
        processor.process(std::vector<float>(floats, 0.25F), true);
    }
    catch (const std::exception& failure)
    {
        return ::testing::AssertionSuccess() << failure.what();
    }
    return ::testing::AssertionFailure() << "no exception";
}

TEST(ChannelCount, OtherThanTwoIsRefused)
{
    const auto context = loadContext("gains.onnx");
    for (const std::int32_t channels : {0, 1, 3, 4})
        for (const bool interleaved : {true, false})
            for (const std::size_t floats :
                 {std::size_t{0}, std::size_t{1}, std::size_t{7}, std::size_t{8}, std::size_t{30000}})
                EXPECT_TRUE(isRefused(context, channels, interleaved, floats))
                    << channels << " channels, " << (interleaved ? "interleaved, " : "planar, ") << floats
                    << " floats";
}

TEST(ChannelCount, NegativeOrHugeIsRefused)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer ends the process where the system's allocator throws std::bad_alloc";
#else
    const auto context = loadContext("gains.onnx");
    for (const std::int32_t channels :
         {-1, -2, -4096, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()})
        for (const bool interleaved : {true, false})
            EXPECT_TRUE(isRefused(context, channels, interleaved, 1000)) << channels;
#endif
}

} // namespace
