// SPDX-License-Identifier: MIT
// What a live object gives: the stems in their place, and holes where they come late.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "c/LiveFixture.h"

using namespace live;

namespace
{

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

} // namespace
