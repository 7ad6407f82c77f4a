// SPDX-License-Identifier: MIT
// What the audio thread does in the built library, with the real runtime: nothing that could make it wait.

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <tonwerk/tonwerk_live.h>
#include <unistd.h>

#include "c/realtime/RealtimeGuard.h"
#include "support/ModelFile.h"

namespace
{

using realtime::Offences;
using CLive = std::unique_ptr<tonwerk_live, decltype(&tonwerk_live_destroy)>;

/// What an action does on a watched thread.
Offences offencesOf(const std::function<void()>& action)
{
    const Offences before = realtime::offences();
    realtime::runWatched(
        [&]
        {
            const realtime::Guard guard;
            action();
        });
    const Offences after = realtime::offences();
    return {after.allocations - before.allocations, after.locks - before.locks,
            after.systemCalls - before.systemCalls};
}

TEST(RealtimeGuard, SeesAllocationsLocksConditionsAndSystemCalls)
{
    std::mutex mutex;
    std::condition_variable condition;
    static void* volatile memory = nullptr;
    EXPECT_EQ(offencesOf([] { memory = std::malloc(1); }), (Offences{1, 0, 0}));
    EXPECT_EQ(offencesOf([] { std::free(memory); }), (Offences{1, 0, 0}));
    EXPECT_EQ(offencesOf([] { memory = ::operator new(1); }), (Offences{1, 0, 0}));
    EXPECT_EQ(offencesOf([] { ::operator delete(memory); }), (Offences{1, 0, 0}));
    EXPECT_EQ(offencesOf([&] { const std::lock_guard lock(mutex); }), (Offences{0, 1, 0}));
    EXPECT_EQ(offencesOf([&] { condition.notify_one(); }), (Offences{0, 1, 0}));
    EXPECT_EQ(offencesOf([] { syscall(SYS_getppid); }), (Offences{0, 0, 1}));
    EXPECT_EQ(offencesOf([] { std::this_thread::yield(); }), (Offences{0, 0, 1}));
    EXPECT_EQ(offencesOf([] {}), (Offences{0, 0, 0}));
    EXPECT_EQ(tonwerk_live_get_info(nullptr, nullptr), TONWERK_INVALID_ARGUMENT);
}

class Realtime : public ::testing::Test
{
protected:
    Realtime()
    {
        const std::vector<char> model = readModel("gains.onnx");
        tonwerk_context* context = nullptr;
        EXPECT_EQ(tonwerk_context_create(model.data(), model.size(), nullptr, 0, &context), TONWERK_OK);
        tonwerk_stream_options stream = TONWERK_STREAM_OPTIONS_INIT;
        stream.step = 8;
        stream.lookahead = 2;
        tonwerk_live_options options = TONWERK_LIVE_OPTIONS_INIT;
        options.stream = &stream;
        options.flags = TONWERK_LIVE_DRY;
        options.block = 512;
        tonwerk_live* made = nullptr;
        EXPECT_EQ(tonwerk_live_open(context, &options, &made), TONWERK_OK);
        live.reset(made);
        tonwerk_context_destroy(context);
        for (std::size_t row = 0; row < rows.size(); ++row)
            targets.at(row) = rows.at(row).data();
    }

    /// On the audio thread.
    std::size_t play(std::size_t frames)
    {
        return tonwerk_live_process_planar(live.get(), input.data(), input.data(), targets.data(), frames);
    }

    /// Waits and asks nothing of the system.
    static void spin(int turns)
    {
        for (int i = 0; i < turns; ++i)
            std::atomic_signal_fence(std::memory_order_seq_cst);
    }

    tonwerk_live_info info() const
    {
        tonwerk_live_info known{};
        known.size = sizeof known;
        EXPECT_EQ(tonwerk_live_get_info(live.get(), &known), TONWERK_OK);
        return known;
    }

    CLive live{nullptr, tonwerk_live_destroy};
    std::vector<float> input = std::vector<float>(4096, 0.25F);
    std::array<std::array<float, 4096>, TONWERK_CHANNEL_COUNT> rows{};
    std::array<float*, TONWERK_CHANNEL_COUNT> targets{};
};

TEST_F(Realtime, CallsInTimeLateFarBehindAndResetsDoNothingThatCouldWait)
{
    const std::array<std::size_t, 6> blocks{64, 0, 441, 1, 512, 4096};
    std::size_t heard = 0;
    const auto outOfBreath = [&] // faster than any worker: late, and far behind
    {
        for (std::size_t i = 0; i < 3000; ++i)
        {
            play(blocks.at(i % blocks.size()));
            spin(2000);
        }
    };
    std::atomic<bool> enough{false};
    const auto resets = [&] // until one has met a run that was under way
    {
        for (std::int64_t i = 0; i < 300 || (!enough && i < 5000); ++i)
        {
            for (int j = 0; j < 3; ++j)
                play(4096);
            spin(static_cast<int>(i % 50) * 100000);
            tonwerk_live_reset(live.get(), i);
            heard += static_cast<std::size_t>(tonwerk_live_position(live.get()) >= i);
        }
    };
    EXPECT_EQ(offencesOf(outOfBreath), (Offences{0, 0, 0}));
    EXPECT_GT(info().late_frames, 0U);
    EXPECT_GT(info().restarts, 0U);
    std::atomic<bool> ended{false};
    std::thread watcher(
        [&]
        {
            while (!ended && !(enough = info().cancelled_runs > 0))
                std::this_thread::yield();
        });
    EXPECT_EQ(offencesOf(resets), (Offences{0, 0, 0}));
    ended = true;
    watcher.join();
    EXPECT_EQ(heard, 0U) << "a reset sends the position back";
    EXPECT_GT(info().cancelled_runs, 0U);
    EXPECT_EQ(info().failed_runs, 0U);
}

TEST_F(Realtime, CallsThatGetStemsDoNothingThatCouldWait)
{
    constexpr std::size_t block = 441;
    constexpr std::uint64_t firstFrames = (8 + 2 + 1) * 1024;
    constexpr std::uint64_t stepFrames = 8 * 1024;
    std::atomic<int> turn{0};
    std::size_t late = 0;
    constexpr int calls = 200;
    std::thread pacer( // lets the audio thread go on when the worker has nothing left to do
        [&]
        {
            for (std::uint64_t i = 1; i <= calls; ++i)
            {
                const std::uint64_t frames = (i - 1) * block;
                const std::uint64_t runs = frames < firstFrames ? 0 : 1 + (frames - firstFrames) / stepFrames;
                while (info().runs < runs)
                    std::this_thread::yield();
                turn = static_cast<int>(i);
                while (turn > 0)
                    std::this_thread::yield();
            }
        });
    const auto audio = [&]
    {
        for (int i = 1; i <= calls; ++i)
        {
            while (turn != i)
            {
            }
            late += play(block);
            turn = -i;
        }
    };
    EXPECT_EQ(offencesOf(audio), (Offences{0, 0, 0}));
    pacer.join();
    EXPECT_EQ(late, 0U);
    EXPECT_NE(rows[0][block - 1], 0.0F);
}

} // namespace
