// SPDX-License-Identifier: MIT
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

#include "support/Stream.h"

namespace
{

constexpr std::size_t firstEnd = 252928;  // of what the first block of maxInputSize() returns
constexpr std::size_t secondEnd = 507904; // of what the second one returns
constexpr std::size_t frame = 4096;

// What the selected stems hold in the failed chunk is whatever the run left: no more than music.
TEST(FailedRun, SpoilsNothingButItsChunkAndTheStreamGoesOn)
{
    constexpr std::size_t length = 900000;
    Stereo input = noise(length);
    input.left[357024] = 1e6F; // in the second block; beyond what this model bears

    ::testing::internal::CaptureStdout();
    auto config = allStems();
    config.bass = 0;
    Stream stream(loadContext("fail_on_request.onnx"), config);
    stream.feedAll(input);
    const std::string log = ::testing::internal::GetCapturedStdout();

    EXPECT_EQ(stream.result().lengths, (std::vector<std::size_t>{firstEnd, 254976, 254976, 137120}));
    constexpr std::size_t bass = 5;
    for (std::size_t i = 0; i < modelGains.size(); ++i)
    {
        const Stereo& stem = stream.stem(i);
        const Stereo expected = i == bass ? silence(length) : scaled(input, modelGains[i]);
        ASSERT_EQ(stem.size(), length);
        // The frames at the joins overlap their neighbours' chunks by less than a frame length.
        // Rounding only.
        EXPECT_LE(largestDifference(stem, expected, frame, firstEnd), 1e-6F) << "stem " << i;
        EXPECT_LE(largestDifference(stem, expected, secondEnd + frame, length - frame), 1e-6F)
            << "stem " << i;
        EXPECT_LE(largestDifference(stem, silence(length)), 1.0F) << "nothing loud at the joins";
    }
    EXPECT_EQ(largestDifference(stream.stem(bass), silence(length)), 0) << "nobody asked for it";
    for (std::size_t i = firstEnd; i < secondEnd; ++i)
        ASSERT_NEAR(stream.stem(residual).right[i] + stream.stem(mix).right[i], input.right[i], 1e-6F)
            << "the residual is what the stems leave of the song, sample " << i;

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
    return std::isfinite(largestDifference(signal, silence(signal.size())));
}

// The largest float is finite, but what is computed from it within its frames need not be.
TEST(UnusualSamples, ConstantSquareOrFarTooLoudSignalsAreSeparatedLikeAnyOther)
{
    constexpr std::size_t length = 300000;
    Stereo constant = silence(length);
    Stereo square = silence(length);
    for (std::size_t i = 0; i < length; ++i)
    {
        constant.left[i] = constant.right[i] = 1.0F;
        square.left[i] = square.right[i] = i / 100 % 2 == 0 ? 1.0F : -1.0F;
    }
    const auto context = loadContext("gains.onnx");
    // A square wave has a little at half the sample rate, which the pipeline does not keep: 1 / 4096 of each
    // jump.
    for (const auto& [signal, tolerance] : {std::pair{constant, 1e-5F}, std::pair{square, 2e-3F},
                                            std::pair{scaled(noise(length), 32.0F), 1e-4F}})
    {
        const StreamResult result = separate(context, signal);
        for (std::size_t stem = 0; stem < modelGains.size(); ++stem)
            EXPECT_LE(largestDifference(result.stems[stem], scaled(signal, modelGains[stem]), frame,
                                        length - frame),
                      tolerance)
                << "stem " << stem;
    }
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
          std::pair{firstEnd + 10, std::numeric_limits<float>::max()}, std::pair{length - 1, nan}})
    {
        Stereo damaged = input;
        damaged.left[position] = value;
        const StreamResult result = separate(context, damaged);
        const std::size_t first = position - std::min(position, frame - 1);
        const std::size_t last = std::min(position + frame, length);
        for (std::size_t i = 0; i < stemCount; ++i)
        {
            EXPECT_EQ(result.stems[i].right, clean.stems[i].right) << "stem " << i << ", " << position;
            for (const auto& [from, to] : {std::pair{std::size_t{0}, first}, std::pair{last, length}})
                EXPECT_EQ(largestDifference(result.stems[i], clean.stems[i], from, to), 0)
                    << "stem " << i << ", " << position;
            if (std::isfinite(value))
                continue;
            Stereo rest = result.stems[i];
            if (i == residual)
            {
                EXPECT_FALSE(std::isfinite(rest.left[position])) << position;
                rest.left[position] = 0.0F;
            }
            EXPECT_TRUE(isFinite(rest)) << "stem " << i << ", " << position;
        }
    }
}

// Refused by its constructor or by its first call, and nothing is read beyond what the host gave.
TEST(ChannelCount, OtherThanTwoIsRefused)
{
    std::vector<std::int32_t> counts{0, 1, 3, 4};
#ifndef __SANITIZE_ADDRESS__ // which ends the process where the system's allocator throws std::bad_alloc
    counts.insert(counts.end(), {-1, -2, -4096, std::numeric_limits<std::int32_t>::min(),
                                 std::numeric_limits<std::int32_t>::max()});
#endif
    const auto context = loadContext("gains.onnx");
    for (const std::int32_t channels : counts)
        for (const bool interleaved : {true, false})
            for (const std::size_t floats : {0U, 1U, 7U, 8U, 30000U})
                try
                {
                    tonwerk::TonwerkProcConfig config = allStems(interleaved);
                    config.channels = channels;
                    tonwerk::TonwerkProc processor(context, config);
                    processor.process(std::vector<float>(floats, 0.25F), true);
                    ADD_FAILURE() << channels << " channels, interleaved " << interleaved << ", " << floats;
                }
                catch (const std::exception& failure)
                {
                    EXPECT_STRNE(failure.what(), "");
                }
}

} // namespace
