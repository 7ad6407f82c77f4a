// SPDX-License-Identifier: MIT
// Streams of one context, on a network that does what the test says.

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/FakeBackend.h"
#include "tonwerk/tonwerk_c.h"

namespace
{

using Context = std::unique_ptr<tonwerk_context, decltype(&tonwerk_context_destroy)>;
using CStream = std::unique_ptr<tonwerk_stream, decltype(&tonwerk_stream_destroy)>;

constexpr std::size_t step = 8;
constexpr std::size_t firstFrames = (step + 2 + 1) * 1024;
constexpr std::size_t laterFrames = step * 1024;

struct LogLine
{
    std::int32_t level;
    std::string text;
};

void keepLine(void* lines, std::int32_t level, const char* text)
{
    static_cast<std::vector<LogLine>*>(lines)->push_back({level, text});
}

class SharedStreams : public ::testing::Test
{
protected:
    SharedStreams() { fakeBackend() = {}; }

    Context open()
    {
        tonwerk_context_options options = TONWERK_CONTEXT_OPTIONS_INIT;
        options.log = keepLine;
        options.log_user = &lines;
        tonwerk_context* context = nullptr;
        EXPECT_EQ(tonwerk_context_open("model", 5, &options, &context), TONWERK_OK);
        return {context, tonwerk_context_destroy};
    }

    static CStream stream(const Context& context)
    {
        tonwerk_stream_options options = TONWERK_STREAM_OPTIONS_INIT;
        options.step = step;
        options.lookahead = 2;
        tonwerk_stream* made = nullptr;
        EXPECT_EQ(tonwerk_stream_open(context.get(), &options, &made), TONWERK_OK);
        return {made, tonwerk_stream_destroy};
    }

    tonwerk_status push(const CStream& stream, std::size_t frames)
    {
        return tonwerk_stream_push(stream.get(), block.data(), frames);
    }

    static tonwerk_stream_info infoOf(const CStream& stream)
    {
        tonwerk_stream_info info{};
        info.size = sizeof info;
        EXPECT_EQ(tonwerk_stream_get_info(stream.get(), &info), TONWERK_OK);
        return info;
    }

    /// The vocals' left channel, of all that is available.
    static std::vector<float> vocals(const CStream& stream)
    {
        std::vector<float> samples(tonwerk_stream_available(stream.get()));
        std::array<float*, TONWERK_CHANNEL_COUNT> channels{samples.data()};
        std::size_t count = 0;
        EXPECT_EQ(tonwerk_stream_read_planar(stream.get(), channels.data(), samples.size(), &count),
                  TONWERK_OK);
        return samples;
    }

    std::vector<LogLine> lines;
    const std::vector<float> block = std::vector<float>(2 * firstFrames, 0.25F);
};

/// A network that waits in its runs until the test lets it go on.
struct Gate
{
    FakeInference::Model model()
    {
        return [this](auto&&...)
        {
            ++running;
            mostRunning = std::max(mostRunning.load(), running.load());
            entered.set_value();
            released.wait();
            --running;
            return true;
        };
    }

    std::atomic<int> running{0};
    std::atomic<int> mostRunning{0};
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released{release.get_future()};
};

TEST_F(SharedStreams, CancellingEndsARunThatIsUnderWayUntilTheReset)
{
    Gate gate;
    const auto ordinary = fakeBackend().model;
    fakeBackend().model = gate.model();
    const Context context = open();
    const CStream cancelled = stream(context);
    auto call = std::async(std::launch::async, [&] { return push(cancelled, firstFrames); });
    gate.entered.get_future().wait();
    tonwerk_stream_cancel(cancelled.get());
    gate.release.set_value();
    EXPECT_EQ(call.get(), TONWERK_CANCELLED);
    EXPECT_EQ(push(cancelled, 1), TONWERK_CANCELLED);
    EXPECT_EQ(tonwerk_stream_flush(cancelled.get()), TONWERK_CANCELLED);
    EXPECT_EQ(tonwerk_stream_frames_until_result(cancelled.get()), 0U);
    EXPECT_EQ(infoOf(cancelled).failed_runs, 0U) << "a cancelled run has not failed";
    EXPECT_TRUE(lines.empty()) << lines.front().text;

    fakeBackend().lastMade.lock()->model = ordinary;
    EXPECT_EQ(tonwerk_stream_reset(cancelled.get()), TONWERK_OK);
    const CStream fresh = stream(context);
    ASSERT_EQ(push(cancelled, firstFrames), TONWERK_OK);
    ASSERT_EQ(push(fresh, firstFrames), TONWERK_OK);
    const std::vector<float> expected = vocals(fresh);
    EXPECT_FALSE(expected.empty());
    EXPECT_EQ(vocals(cancelled), expected) << "nothing is left of the stream before";
}

TEST_F(SharedStreams, RunsTakeTurnsAndAStreamCanBeCancelledWhileItWaits)
{
    Gate gate;
    fakeBackend().model = gate.model();
    const Context context = open();
    const CStream first = stream(context);
    const CStream second = stream(context);
    auto running = std::async(std::launch::async, [&] { return push(first, firstFrames); });
    gate.entered.get_future().wait();
    auto waiting = std::async(std::launch::async, [&] { return push(second, firstFrames); });
    tonwerk_stream_cancel(second.get());
    EXPECT_EQ(waiting.get(), TONWERK_CANCELLED) << "though the first one goes on";
    gate.release.set_value();
    EXPECT_EQ(running.get(), TONWERK_OK);
    EXPECT_EQ(gate.mostRunning, 1);
}

TEST_F(SharedStreams, AFailedRunIsSilentCountedAndLoggedAndTheStreamGoesOn)
{
    const Context context = open();
    const CStream failing = stream(context);
    ASSERT_EQ(push(failing, firstFrames), TONWERK_OK);
    EXPECT_GT(std::abs(vocals(failing).back()), 0.01F);
    const auto ordinary = std::exchange(fakeBackend().lastMade.lock()->model, failingModel());
    ASSERT_EQ(push(failing, laterFrames), TONWERK_OK);
    const std::vector<float> muted = vocals(failing);
    ASSERT_EQ(muted.size(), laterFrames);
    EXPECT_EQ(std::vector<float>(muted.begin() + 4096, muted.end()), std::vector<float>(laterFrames - 4096));
    fakeBackend().lastMade.lock()->model = ordinary;
    ASSERT_EQ(push(failing, laterFrames), TONWERK_OK);
    EXPECT_GT(std::abs(vocals(failing).back()), 0.01F);

    const tonwerk_stream_info info = infoOf(failing);
    EXPECT_EQ(info.runs, 3U);
    EXPECT_EQ(info.failed_runs, 1U);
    EXPECT_LE(info.last_run_seconds, info.worst_run_seconds);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, TONWERK_LOG_ERROR);
    EXPECT_EQ(lines[0].text, "A run of the model has failed; its stems are silent: the fake network failed");
    EXPECT_EQ(tonwerk_stream_reset(failing.get()), TONWERK_OK);
    EXPECT_EQ(infoOf(failing).runs, 0U);
}

TEST_F(SharedStreams, LinesGoToTheContextWhoseCallItIsAndTheLogOutlivesContexts)
{
    fakeBackend().model = failingModel();
    const Context context = open();
    const CStream logged = stream(context);
    std::vector<LogLine> others;
    tonwerk_context_options options = TONWERK_CONTEXT_OPTIONS_INIT;
    options.log = keepLine;
    options.log_user = &others;
    options.log_level = TONWERK_LOG_NONE;
    tonwerk_context* made = nullptr;
    ASSERT_EQ(tonwerk_context_open("model", 5, &options, &made), TONWERK_OK);
    Context other{made, tonwerk_context_destroy};
    const CStream quiet = stream(other);
    ASSERT_EQ(push(quiet, firstFrames), TONWERK_OK);
    EXPECT_TRUE(others.empty());
    other.reset();
    ASSERT_EQ(push(logged, firstFrames), TONWERK_OK);
    EXPECT_EQ(lines.size(), 1U);
    EXPECT_TRUE(others.empty());
}

TEST_F(SharedStreams, OptionsReachTheRuntime)
{
    tonwerk_context_options options = TONWERK_CONTEXT_OPTIONS_INIT;
    options.threads = 3;
    options.flags = TONWERK_SPIN_THREADS;
    options.provider = TONWERK_PROVIDER_CUDA;
    tonwerk_context* context = nullptr;
    ASSERT_EQ(tonwerk_context_open("model", 5, &options, &context), TONWERK_OK);
    tonwerk_context_destroy(context);
    const SessionChoices& choices = fakeBackend().choices;
    EXPECT_EQ(choices.threads, 3U);
    EXPECT_EQ(choices.provider, "CUDAExecutionProvider");
    EXPECT_TRUE(choices.onlyProvider);
    EXPECT_TRUE(choices.spinThreads);
    EXPECT_FALSE(choices.pinThreads);
    open();
    EXPECT_FALSE(choices.onlyProvider || choices.pinThreads || choices.spinThreads) << "off by default";

    fakeBackend().onMake = [] { throw ProviderRefused("There is none."); };
    EXPECT_EQ(tonwerk_context_open("model", 5, &options, &context), TONWERK_PROVIDER_REFUSED);
    EXPECT_STREQ(tonwerk_last_error(), "The execution provider cannot be had. There is none.");
}

} // namespace
