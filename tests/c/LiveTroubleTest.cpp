// SPDX-License-Identifier: MIT
// Resets, failures and misuse of a live object.

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "c/LiveFixture.h"

using namespace live;

namespace
{

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
