// SPDX-License-Identifier: MIT
// Ending a run of the real runtime from another thread.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <tonwerk/tonwerk_c.h>

#include "support/ModelFile.h"

namespace
{

using Stream = std::unique_ptr<tonwerk_stream, decltype(&tonwerk_stream_destroy)>;

/// The log of a context, on whose lines another thread can wait.
class WatchedLog
{
public:
    static void keep(void* own, std::int32_t /*level*/, const char* text)
    {
        auto& self = *static_cast<WatchedLog*>(own);
        const std::lock_guard lock(self.mutex);
        self.lines.append(text).append("\n");
        self.changed.notify_all();
    }

    void waitFor(const std::string& words)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return lines.find(words) != std::string::npos; });
    }

    /// All lines since the last call.
    std::string take()
    {
        const std::lock_guard lock(mutex);
        return std::exchange(lines, {});
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::string lines;
};

Stream openSlowStream(WatchedLog& log)
{
    const std::vector<char> model = readModel("slow_on_request.onnx");
    tonwerk_context_options options = TONWERK_CONTEXT_OPTIONS_INIT;
    options.log_level = TONWERK_LOG_DEBUG;
    options.log = WatchedLog::keep;
    options.log_user = &log;
    tonwerk_context* context = nullptr;
    EXPECT_EQ(tonwerk_context_open(model.data(), model.size(), &options, &context), TONWERK_OK)
        << tonwerk_last_error();
    tonwerk_stream_options choice = TONWERK_STREAM_OPTIONS_INIT;
    EXPECT_EQ(tonwerk_preset("live", &choice), TONWERK_OK);
    tonwerk_stream* stream = nullptr;
    EXPECT_EQ(tonwerk_stream_open(context, &choice, &stream), TONWERK_OK);
    tonwerk_context_destroy(context);
    return {stream, tonwerk_stream_destroy};
}

std::vector<float> blockUntilResult(const Stream& stream, float level)
{
    std::vector<float> block(std::size_t{2} * tonwerk_stream_frames_until_result(stream.get()));
    for (std::size_t i = 0; i < block.size(); ++i)
        block[i] = i % 8 < 4 ? level : -level;
    return block;
}

// Left alone, that run would take days. Whether the cancel came before the runtime began or in the middle of
// the run, only the runtime's own line can tell, so the test goes on until it has seen that one.
TEST(Cancel, EndsARunOfTheRuntimeInItsMiddleAndTheStreamLivesOn)
{
    WatchedLog log;
    const Stream stream = openSlowStream(log);
    bool inTheMiddle = false;
    for (std::chrono::milliseconds pause(20); !inTheMiddle; pause *= 2)
    {
        ASSERT_LT(pause, std::chrono::minutes(1)) << "no run was ever ended in its middle";
        const std::vector<float> loud = blockUntilResult(stream, 1e6F);
        auto pushed = std::async(std::launch::async, [&]
                                 { return tonwerk_stream_push(stream.get(), loud.data(), loud.size() / 2); });
        log.waitFor("Process signal: ");
        std::this_thread::sleep_for(pause);
        tonwerk_stream_cancel(stream.get());
        EXPECT_EQ(pushed.get(), TONWERK_CANCELLED);
        inTheMiddle = log.take().find("terminate flag") != std::string::npos;
        EXPECT_EQ(tonwerk_stream_push(stream.get(), loud.data(), 1), TONWERK_CANCELLED);
        ASSERT_EQ(tonwerk_stream_reset(stream.get()), TONWERK_OK);
    }
    const std::vector<float> quiet = blockUntilResult(stream, 0.1F);
    ASSERT_EQ(tonwerk_stream_push(stream.get(), quiet.data(), quiet.size() / 2), TONWERK_OK);
    EXPECT_GT(tonwerk_stream_available(stream.get()), 0U);
    tonwerk_stream_info info{};
    info.size = sizeof info;
    ASSERT_EQ(tonwerk_stream_get_info(stream.get(), &info), TONWERK_OK);
    EXPECT_EQ(info.runs, 1U);
    EXPECT_EQ(info.failed_runs, 0U);
}

} // namespace
