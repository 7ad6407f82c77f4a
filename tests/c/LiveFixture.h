// SPDX-License-Identifier: MIT
/// \file LiveFixture.h
/// A live object on a network that does what the test says, held against a stream of the same geometry.
#ifndef TONWERK_TESTS_C_LIVEFIXTURE_H
#define TONWERK_TESTS_C_LIVEFIXTURE_H

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <span>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/FakeBackend.h"
#include "support/Stereo.h"
#include "tonwerk/tonwerk_live.h"

namespace live
{

using Context = std::unique_ptr<tonwerk_context, decltype(&tonwerk_context_destroy)>;
using CStream = std::unique_ptr<tonwerk_stream, decltype(&tonwerk_stream_destroy)>;
using CLive = std::unique_ptr<tonwerk_live, decltype(&tonwerk_live_destroy)>;
using Rows = std::array<std::vector<float>, TONWERK_CHANNEL_COUNT>;

inline constexpr std::size_t step = 8;
inline constexpr std::size_t lookahead = 2;
inline constexpr std::size_t stepFrames = step * 1024;
inline constexpr std::size_t firstFrames = (step + lookahead + 1) * 1024;
inline constexpr std::size_t block = 512;

inline void waitUntil(const std::function<bool()>& condition)
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

inline tonwerk_stream_options geometry()
{
    tonwerk_stream_options options = TONWERK_STREAM_OPTIONS_INIT;
    options.step = step;
    options.lookahead = lookahead;
    return options;
}

/// What a stream gives for a signal, as far as it has come; the rest is silent.
inline Rows streamed(const Context& context, const Stereo& signal)
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

inline constexpr std::size_t latency = (step + lookahead + 3) * 1024 - 1 + stepFrames + block;

} // namespace live

#endif // TONWERK_TESTS_C_LIVEFIXTURE_H
