// SPDX-License-Identifier: MIT
// The live object on a network that does what the test says, held against a stream of the same geometry.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <random>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/FakeBackend.h"
#include "support/Stereo.h"
#include "tonwerk/tonwerk_live.h"

namespace
{

using Context = std::unique_ptr<tonwerk_context, decltype(&tonwerk_context_destroy)>;
using CStream = std::unique_ptr<tonwerk_stream, decltype(&tonwerk_stream_destroy)>;
using CLive = std::unique_ptr<tonwerk_live, decltype(&tonwerk_live_destroy)>;
using Rows = std::array<std::vector<float>, TONWERK_CHANNEL_COUNT>;

constexpr std::size_t step = 8;
constexpr std::size_t lookahead = 2;
constexpr std::size_t stepFrames = step * 1024;
constexpr std::size_t firstFrames = (step + lookahead + 1) * 1024;
constexpr std::size_t block = 512;

void waitUntil(const std::function<bool()>& condition)
{
    while (!condition())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

/// A network that is cheap, as it looks at the newest frames only, and that waits, fails or throws on
/// request.
struct Network
{
    enum class Mood
    {
        Well,
        Failing,
        OutOfMemory
    };

    FakeInference::Model model()
    {
        return [this](std::span<const float> input, const std::vector<float*>& outputs,
                      const FakeInference::Shape& shape)
        {
            ++entered;
            waitUntil([this] { return !closed; });
            if (mood == Mood::OutOfMemory)
                throw std::bad_alloc();
            const auto rows = static_cast<std::size_t>(shape[2]);
            const auto bins = static_cast<std::size_t>(shape[3]);
            for (std::size_t stem = 0; stem < outputs.size(); ++stem)
                for (std::size_t plane = 0; plane < static_cast<std::size_t>(shape[1]); ++plane)
                    for (std::size_t i = (plane * rows + rows - 24) * bins; i < (plane + 1) * rows * bins;
                         ++i)
                        outputs[stem][i] = gains.at(stem) * input[i];
            return mood == Mood::Well;
        };
    }

    static constexpr std::array<float, 6> gains{0.3F, 0.25F, 0.2F, 0.1F, 0.05F, 0.0F};
    std::atomic<int> entered{0};
    std::atomic<bool> closed{false};
    std::atomic<Mood> mood{Mood::Well};
};

tonwerk_stream_options geometry()
{
    tonwerk_stream_options options = TONWERK_STREAM_OPTIONS_INIT;
    options.step = step;
    options.lookahead = lookahead;
    return options;
}

/// What a stream gives for a signal, as far as it has come; the rest is silent.
Rows streamed(const Context& context, const Stereo& signal)
{
    tonwerk_stream* made = nullptr;
    const tonwerk_stream_options options = geometry();
    EXPECT_EQ(tonwerk_stream_open(context.get(), &options, &made), TONWERK_OK);
    const CStream stream{made, tonwerk_stream_destroy};
    EXPECT_EQ(tonwerk_stream_push_planar(made, signal.left.data(), signal.right.data(), signal.size()),
              TONWERK_OK);
    Rows rows;
    std::array<float*, TONWERK_CHANNEL_COUNT> targets{};
    for (std::size_t row = 0; row < rows.size(); ++row)
    {
        rows.at(row).resize(signal.size());
        targets.at(row) = rows.at(row).data();
    }
    std::size_t count = 0;
    EXPECT_EQ(tonwerk_stream_read_planar(made, targets.data(), signal.size(), &count), TONWERK_OK);
    return rows;
}

/// Plays a signal through a live object and keeps what comes out.
class Player
{
public:
    Player(tonwerk_live* live, Stereo signal) : live(live), signal(std::move(signal)) {}

    /// \return frames that were missing
    std::size_t play(std::size_t frames)
    {
        std::array<float*, TONWERK_CHANNEL_COUNT> targets{};
        for (std::size_t row = 0; row < rows.size(); ++row)
        {
            rows.at(row).resize(played + frames, 99.0F);
            targets.at(row) = rows.at(row).data() + played;
        }
        const std::size_t late = tonwerk_live_process_planar(live, &signal.left[played],
                                                             &signal.right[played], targets.data(), frames);
        played += frames;
        return late;
    }

    /// In blocks, up to a frame.
    std::size_t playTo(std::size_t end)
    {
        std::size_t late = 0;
        while (played < end)
            late += play(std::min(block, end - played));
        return late;
    }

    tonwerk_live* live;
    Stereo signal;
    std::size_t played = 0;
    Rows rows;
};

class Live : public ::testing::Test
{
protected:
    Live()
    {
        fakeBackend() = {};
        fakeBackend().model = network.model();
        tonwerk_context_options options = TONWERK_CONTEXT_OPTIONS_INIT;
        options.log_level = TONWERK_LOG_NONE;
        tonwerk_context* made = nullptr;
        EXPECT_EQ(tonwerk_context_open("model", 5, &options, &made), TONWERK_OK);
        context.reset(made);
    }

    CLive open(std::uint32_t flags = 0) const
    {
        const tonwerk_stream_options stream = geometry();
        tonwerk_live_options options = TONWERK_LIVE_OPTIONS_INIT;
        options.flags = flags;
        options.block = block;
        options.stream = &stream;
        tonwerk_live* live = nullptr;
        EXPECT_EQ(tonwerk_live_open(context.get(), &options, &live), TONWERK_OK) << tonwerk_last_error();
        return {live, tonwerk_live_destroy};
    }

    CLive openOffline() const
    {
        CLive live = open();
        tonwerk_live_set_offline(live.get(), 1);
        return live;
    }

    static tonwerk_live_info infoOf(const CLive& live)
    {
        tonwerk_live_info info{};
        info.size = sizeof info;
        EXPECT_EQ(tonwerk_live_get_info(live.get(), &info), TONWERK_OK);
        return info;
    }

    /// Waits until the worker has done all runs for so many frames of its stream.
    static void settle(const CLive& live, std::size_t frames)
    {
        const std::uint64_t runs = frames < firstFrames ? 0 : 1 + (frames - firstFrames) / stepFrames;
        waitUntil([&] { return infoOf(live).runs >= runs; });
    }

    /// That what came out from frame `first` to `last` is what went in as frame `begin` and later, separated,
    /// a latency later.
    void expectAligned(const Player& player, std::size_t begin, std::size_t first, std::size_t last) const
    {
        const auto latency = static_cast<std::size_t>(tonwerk_live_latency(player.live));
        ASSERT_GE(first, begin + latency);
        const Rows expected = streamed(context, slice(player.signal, begin, last - begin));
        for (std::size_t row = 0; row < expected.size(); ++row)
            for (std::size_t i = first; i < last; ++i)
                ASSERT_EQ(player.rows.at(row)[i], expected.at(row)[i - latency - begin]) << row << ", " << i;
    }

    static void expectSilent(const Player& player, std::size_t first, std::size_t last, std::size_t rows = 16)
    {
        for (std::size_t row = 0; row < rows; ++row)
            for (std::size_t i = first; i < last; ++i)
                ASSERT_EQ(player.rows.at(row)[i], 0.0F) << row << ", " << i;
    }

    Network network;
    Context context{nullptr, tonwerk_context_destroy};
};

constexpr std::size_t latency = (step + lookahead + 3) * 1024 - 1 + stepFrames + block;

TEST_F(Live, GivesTheStemsOfTheStreamALatencyLaterWhateverTheBlocks)
{
    const CLive live = openOffline();
    EXPECT_EQ(tonwerk_live_latency(live.get()), latency);
    EXPECT_EQ(tonwerk_live_position(live.get()), -static_cast<std::int64_t>(latency));
    Player player(live.get(), noise(100000));
    const std::array<std::size_t, 8> blocks{0, 1, 64, 441, block, block + 1, 7, 5000};
    for (std::size_t i = 0; player.played + 5000 < player.signal.size(); ++i)
        EXPECT_EQ(player.play(blocks.at(i % blocks.size())), 0U);
    expectSilent(player, 0, latency);
    expectAligned(player, 0, latency, player.played);
    const tonwerk_live_info info = infoOf(live);
    EXPECT_EQ(info.latency, latency);
    EXPECT_EQ(info.block, block);
    EXPECT_EQ(info.late_frames + info.underruns + info.restarts + info.failed_runs + info.cancelled_runs, 0U);
    EXPECT_GT(info.last_run_seconds, 0.0);
    EXPECT_LE(info.last_run_seconds, info.worst_run_seconds);
    EXPECT_GT(info.load, 0.0);
    EXPECT_EQ(tonwerk_live_position(live.get()), static_cast<std::int64_t>(player.played - latency));
}

TEST_F(Live, InterleavedBuffersMayBeTheInputAndStemsMayBePassedOver)
{
    const CLive live = openOffline();
    const Stereo signal = noise(60000);
    const Rows expected = streamed(context, signal);
    std::vector<float> samples = packed(signal, true);
    std::array<float*, TONWERK_STEM_COUNT> stems{};
    for (std::size_t at = 0; at < signal.size(); at += 1000)
    {
        stems[TONWERK_DRUM] = &samples[2 * at]; // longer than a block: in place piece by piece
        EXPECT_EQ(tonwerk_live_process(live.get(), &samples[2 * at], stems.data(), 1000), 0U);
    }
    for (std::size_t i = latency; i < signal.size(); ++i)
    {
        ASSERT_EQ(samples[2 * i], expected[2 * TONWERK_DRUM][i - latency]) << i;
        ASSERT_EQ(samples[2 * i + 1], expected[2 * TONWERK_DRUM + 1][i - latency]) << i;
    }
    EXPECT_EQ(tonwerk_live_process(live.get(), nullptr, stems.data(), 100), 0U) << "silence";
}

TEST_F(Live, WhatIsLateIsSilentAndCountedAndTheNextIsInItsPlace)
{
    const CLive live = open();
    Player player(live.get(), noise(150000));
    network.closed = true;
    constexpr std::size_t stalled = 2 * latency;
    EXPECT_EQ(player.playTo(stalled), latency);
    expectSilent(player, 0, stalled);
    tonwerk_live_info info = infoOf(live);
    EXPECT_EQ(info.late_frames, latency);
    EXPECT_EQ(info.underruns, (stalled + block - 1) / block - latency / block);

    network.closed = false;
    settle(live, stalled);
    while (player.played + block <= player.signal.size())
    {
        EXPECT_EQ(player.play(block), 0U) << player.played;
        settle(live, player.played);
    }
    expectAligned(player, 0, stalled, player.played);
    info = infoOf(live);
    EXPECT_EQ(info.late_frames, latency);
    EXPECT_EQ(info.restarts, 0U);
}

TEST_F(Live, WhatIsLateMayBeTheDryInputInTheResidual)
{
    const CLive live = open(TONWERK_LIVE_DRY);
    Player player(live.get(), noise(2 * latency));
    network.closed = true;
    EXPECT_EQ(player.playTo(2 * latency), latency);
    network.closed = false;
    expectSilent(player, 0, 2 * latency, 2 * std::size_t{TONWERK_RESIDUAL});
    for (std::size_t i = latency; i < 2 * latency; ++i)
    {
        ASSERT_EQ(player.rows[2 * TONWERK_RESIDUAL][i], player.signal.left[i - latency]) << i;
        ASSERT_EQ(player.rows[2 * TONWERK_RESIDUAL + 1][i], player.signal.right[i - latency]) << i;
        ASSERT_EQ(player.rows[2 * TONWERK_MIX][i], 0.0F) << i;
    }
}

TEST_F(Live, AWorkerFarBehindDropsWhatWaitsAndBeginsAnewInPlace)
{
    const CLive live = open();
    Player player(live.get(), noise(300000));
    network.closed = true;
    player.playTo(firstFrames);
    waitUntil([&] { return network.entered == 1; });
    while (infoOf(live).restarts == 0)
        player.play(block);
    EXPECT_GT(player.played, 2 * latency);
    player.play(10 * block);
    const std::size_t begin = player.played;
    network.closed = false;
    tonwerk_live_set_offline(live.get(), 1);
    EXPECT_EQ(player.playTo(player.signal.size()), latency) << "of what was lost";
    expectSilent(player, 0, begin + latency);
    expectAligned(player, begin, begin + latency, player.played);
    EXPECT_EQ(infoOf(live).restarts, 1U);
    EXPECT_EQ(infoOf(live).cancelled_runs, 1U);
}

TEST_F(Live, AResetIsHeardAtOnceEndsTheRunAndLeavesNothingBehind)
{
    const CLive live = open();
    Player player(live.get(), noise(200000));
    for (int i = 0; i < 80; ++i, settle(live, player.played))
        player.play(block);
    EXPECT_NE(player.rows[0].back(), 0.0F);
    network.closed = true;
    const int entered = network.entered;
    player.play(stepFrames);
    waitUntil([&] { return network.entered != entered; });
    const std::size_t begin = player.played;
    tonwerk_live_reset(live.get(), 7000000);
    EXPECT_EQ(tonwerk_live_position(live.get()), 7000000 - static_cast<std::int64_t>(latency));
    player.play(block);
    network.closed = false;
    waitUntil([&] { return infoOf(live).cancelled_runs == 1; });
    tonwerk_live_set_offline(live.get(), 1);
    EXPECT_EQ(player.playTo(player.signal.size()), 0U);
    expectSilent(player, begin, begin + latency);
    expectAligned(player, begin, begin + latency, player.played);
    EXPECT_EQ(tonwerk_live_position(live.get()),
              7000000 + static_cast<std::int64_t>(player.played - begin - latency));
    EXPECT_EQ(infoOf(live).failed_runs, 0U) << "a run that was ended has not failed";
}

TEST_F(Live, TenThousandResetsWhileRunsAreUnderWay)
{
    const CLive live = open();
    std::mt19937 generator(randomSeed());
    std::array<float, 20000> samples{};
    const std::array<float*, TONWERK_CHANNEL_COUNT> nowhere{};
    for (std::int64_t i = 0; i < 10000; ++i)
    {
        const bool longer = i % 100 == 0; // long enough for a run
        const std::size_t frames = longer ? firstFrames + generator() % 4000 : generator() % 100;
        tonwerk_live_process_planar(live.get(), samples.data(), samples.data(), nowhere.data(), frames);
        if (longer && i % 200 == 0)
            waitUntil([&, runs = network.entered.load()] { return network.entered != runs; });
        tonwerk_live_reset(live.get(), i);
    }
    EXPECT_GT(infoOf(live).cancelled_runs, 0U);
    tonwerk_live_set_offline(live.get(), 1);
    Player player(live.get(), noise(60000));
    EXPECT_EQ(player.playTo(player.signal.size()), 0U);
    expectSilent(player, 0, latency);
    expectAligned(player, 0, latency, player.played);
    EXPECT_EQ(infoOf(live).failed_runs, 0U);
}

TEST_F(Live, GoesOnThroughFailures)
{
    const CLive live = openOffline();
    Player player(live.get(), noise(300000));
    EXPECT_EQ(player.playTo(60000), 0U);
    network.mood = Network::Mood::Failing;
    EXPECT_EQ(player.playTo(120000), 0U) << "silent, but in time";
    const tonwerk_live_info failed = infoOf(live);
    EXPECT_GE(failed.failed_runs, 6U);
    expectSilent(player, 115000, 120000, 2 * std::size_t{TONWERK_RESIDUAL});
    EXPECT_NE(player.rows[2 * TONWERK_RESIDUAL].back(), 0.0F);

    network.mood = Network::Mood::OutOfMemory;
    EXPECT_GT(player.playTo(180000), 0U);
    EXPECT_GT(infoOf(live).failed_runs, failed.failed_runs);
    network.mood = Network::Mood::Well;
    player.playTo(240000);
    EXPECT_EQ(player.playTo(300000), 0U);
    for (std::size_t i = 240000; i < 300000; ++i)
        ASSERT_NEAR(player.rows[0][i], 0.3F * player.signal.left[i - latency], 1e-5F) << "in place, " << i;
}

TEST_F(Live, SamplesThatAreNoNumbersCountAsSilence)
{
    const CLive live = openOffline();
    Player player(live.get(), noise(60000));
    player.signal.left[20000] = std::numeric_limits<float>::quiet_NaN();
    player.signal.right[20001] = -std::numeric_limits<float>::infinity();
    EXPECT_EQ(player.playTo(player.signal.size()), 0U);
    player.signal.left[20000] = player.signal.right[20001] = 0.0F;
    expectAligned(player, 0, latency, player.played);
}

TEST_F(Live, SeveralShareAContextAndCanBeDestroyedInTheMiddleOfARun)
{
    CLive first = openOffline();
    CLive second = openOffline();
    Player one(first.get(), noise(60000, 1));
    Player other(second.get(), noise(60000, 2));
    std::thread thread([&] { other.playTo(60000); });
    one.playTo(60000);
    thread.join();
    expectAligned(one, 0, latency, one.played);
    expectAligned(other, 0, latency, other.played);

    tonwerk_live_set_offline(first.get(), 0);
    tonwerk_live_set_offline(second.get(), 0);
    one.played = other.played = 0;
    network.closed = true;
    const int entered = network.entered;
    one.playTo(stepFrames);
    waitUntil([&] { return network.entered != entered; });
    other.playTo(stepFrames); // waits for its turn
    second.reset();
    std::thread opener([&] { network.closed = false; });
    first.reset();
    opener.join();
}

TEST_F(Live, RefusesWhatCannotBe)
{
    const auto expectRefused = [&](const tonwerk_live_options& options, const char* reason)
    {
        tonwerk_live* live = nullptr;
        EXPECT_EQ(tonwerk_live_open(context.get(), &options, &live), TONWERK_INVALID_ARGUMENT);
        EXPECT_EQ(live, nullptr);
        EXPECT_EQ(tonwerk_last_error(), std::string("An argument is invalid. ") + reason);
    };
    const tonwerk_live_options ordinary = TONWERK_LIVE_OPTIONS_INIT;
    tonwerk_live_options options = ordinary;
    options.flags = 2;
    expectRefused(options, "The options ask for something that this version does not know.");
    options = ordinary;
    options.block = 65537;
    expectRefused(options, "The block has more than 65,536 frames.");
    options = ordinary;
    options.run_frames = 16777217;
    expectRefused(options, "The time for a run has more than 16,777,216 frames.");
    tonwerk_stream_options stream = geometry();
    stream.step = 300;
    options = ordinary;
    options.stream = &stream;
    expectRefused(options, "Step, lookahead and blend come to 302 frames, and the model has room for 253.");
    stream.stems = 64;
    expectRefused(options, "The options ask for a stem that does not exist.");
    EXPECT_EQ(tonwerk_live_open(nullptr, nullptr, nullptr), TONWERK_INVALID_ARGUMENT);

    float* const nowhere[TONWERK_CHANNEL_COUNT] = {};
    EXPECT_EQ(tonwerk_live_process_planar(nullptr, nullptr, nullptr, nowhere, 5), 0U);
    tonwerk_live_reset(nullptr, 0);
    tonwerk_live_set_offline(nullptr, 1);
    tonwerk_live_destroy(nullptr);
    EXPECT_EQ(tonwerk_live_latency(nullptr), 0U);
    EXPECT_EQ(tonwerk_live_get_info(nullptr, nullptr), TONWERK_INVALID_ARGUMENT);
}

TEST_F(Live, IsOrdinarilyThePresetLiveWithOneStepForARun)
{
    tonwerk_live* made = nullptr;
    ASSERT_EQ(tonwerk_live_open(context.get(), nullptr, &made), TONWERK_OK);
    const CLive live{made, tonwerk_live_destroy};
    tonwerk_stream_options options = TONWERK_STREAM_OPTIONS_INIT;
    ASSERT_EQ(tonwerk_preset("live", &options), TONWERK_OK);
    tonwerk_stream* stream = nullptr;
    ASSERT_EQ(tonwerk_stream_open(context.get(), &options, &stream), TONWERK_OK);
    EXPECT_EQ(tonwerk_live_latency(made), tonwerk_stream_latency(stream) + options.step * 1024 + 1024);
    EXPECT_LE(tonwerk_live_latency(made), 44100U * 7 / 10);
    tonwerk_stream_destroy(stream);
}

} // namespace
