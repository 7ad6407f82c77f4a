// SPDX-License-Identifier: MIT
#ifndef TONWERK_C_LIVE_H
#define TONWERK_C_LIVE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "c/Context.h"
#include "c/Counter.h"
#include "c/LiveExchange.h"
#include "c/LiveWorker.h"
#include "pipeline/RunGeometry.h"
#include "tonwerk/tonwerk_live.h"

namespace tonwerk::c
{

/// What a live object is asked to do, with all defaults resolved.
struct LiveChoices
{
    std::uint32_t stems;
    RunGeometry geometry;  ///< without a fault
    std::size_t block;     ///< the most frames that are expected at once
    std::size_t runFrames; ///< the time for a run of the model
    bool dry;              ///< the residual has the input where frames are missing
};

/// Both channels of a block of input; no pointers: silence.
struct LiveInput
{
    const float* left;
    const float* right;
    std::size_t stride; ///< from sample to sample
};

/// Where a block of stems goes: left and right of every stem, or null.
struct LiveOutput
{
    std::array<float*, stemRows> channels;
    std::size_t stride;
};

/// The audio thread's side of a live separation: gives frames to the worker, numbered from 0 on, and takes
/// back those with the number of `latency` frames ago. What is missing leaves a hole, and nothing moves.
///
/// One thread at a time, wait-free unless offline, but for tell() and latency(), which any thread may call.
class Live
{
public:
    Live(const std::shared_ptr<Context>& context, const LiveChoices& choices);

    /// As tonwerk_live_process.
    std::size_t process(const LiveInput& input, const LiveOutput& output, std::size_t frames) noexcept;

    /// As tonwerk_live_reset.
    void reset(std::int64_t position) noexcept;

    /// As tonwerk_live_position.
    std::int64_t position() const { return offset + heard(); }

    /// As tonwerk_live_set_offline.
    void setOffline(bool on) { offline = on; }

    std::uint64_t latency() const { return delay; }

    /// Fills all but the size.
    void tell(tonwerk_live_info& info) const;

private:
    Live(std::unique_ptr<Stream> stream, const std::shared_ptr<Context>& context, const LiveChoices& choices);

    std::int64_t heard() const { return static_cast<std::int64_t>(given) - static_cast<std::int64_t>(delay); }
    void beginStream() noexcept;
    void give(const LiveInput& input, std::size_t at, std::size_t count) noexcept;
    void pass(const InputFrame* frames, std::size_t count) noexcept;
    std::size_t take(const LiveOutput& output, std::size_t at, std::size_t count) noexcept;
    void leaveOut(const LiveOutput& output, std::size_t at, std::size_t count, std::uint64_t number) noexcept;

    LiveChoices choices;
    std::uint64_t delay;
    LiveExchange exchange;
    LiveWorker worker;
    std::vector<InputFrame> history; ///< with `dry`: the newest frames, each at its number modulo the size
    bool offline = false;
    bool behind = false;          ///< the last frames found no room
    std::uint64_t given = 0;      ///< number of the next frame that comes in
    std::uint64_t firstHeard = 0; ///< number of the first frame since the last reset
    std::uint64_t begin = 0;      ///< number of the first frame of the worker's stream
    std::int64_t offset = 0;      ///< from our numbers to the host's positions
    Counter underruns;
    Counter lateFrames;
    Counter restarts;
};

} // namespace tonwerk::c

#endif // TONWERK_C_LIVE_H
