// SPDX-License-Identifier: MIT
#include "c/Live.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>
#include <utility>

#include "tonwerk/StreamGeometry.h"

namespace tonwerk::c
{

namespace
{

std::unique_ptr<Stream> streamOf(const std::shared_ptr<Context>& context, const LiveChoices& choices)
{
    return std::make_unique<Stream>(context, choices.stems, choices.geometry);
}

std::uint64_t latencyOf(const Stream& stream, const LiveChoices& choices)
{
    return stream.latency() + choices.runFrames + choices.block;
}

/// So many blocks that there is always an empty one: of what is under way nothing is older than the latency,
/// and the last block of every result may be nearly empty.
std::size_t blocksFor(std::size_t frames, std::size_t stepFrames)
{
    constexpr std::size_t spare = 8;
    return frames / StemBlock::capacity + frames / stepFrames + spare;
}

double sampleRateOf(const Context& context)
{
    tonwerk_context_info info{};
    context.tell(info);
    return info.sample_rate;
}

float finite(float sample)
{
    return std::isfinite(sample) ? sample : 0.0F;
}

void silence(const LiveOutput& output, std::size_t at, std::size_t count)
{
    for (float* channel : output.channels)
        if (channel != nullptr)
            for (std::size_t i = at; i < at + count; ++i)
                channel[i * output.stride] = 0.0F;
}

void copyOut(const StemBlock& stems, std::uint64_t number, const LiveOutput& output, std::size_t at,
             std::size_t count)
{
    const auto offset = static_cast<std::size_t>(number - stems.first);
    for (std::size_t row = 0; row < output.channels.size(); ++row)
        if (float* channel = output.channels.at(row); channel != nullptr)
            for (std::size_t i = 0; i < count; ++i)
                channel[(at + i) * output.stride] = stems.row(row)[offset + i];
}

} // namespace

Live::Live(const std::shared_ptr<Context>& context, const LiveChoices& choices)
    : Live(streamOf(context, choices), context, choices)
{
}

Live::Live(std::unique_ptr<Stream> stream, const std::shared_ptr<Context>& context,
           const LiveChoices& choices)
    : choices(choices), delay(latencyOf(*stream, choices)),
      exchange(2 * delay, blocksFor(delay + choices.block, choices.geometry.step * geometry::hop)),
      worker(std::move(stream), context->log(), exchange,
             static_cast<double>(choices.geometry.step * geometry::hop) / sampleRateOf(*context),
             sampleRateOf(*context), choices.block),
      history(choices.dry ? delay + choices.block : 0)
{
}

std::size_t Live::process(const LiveInput& input, const LiveOutput& output, std::size_t frames) noexcept
{
    std::size_t late = 0;
    for (std::size_t at = 0; at < frames;)
    {
        const std::size_t count = std::min(frames - at, choices.block);
        give(input, at, count);
        late += take(output, at, count);
        at += count;
    }
    underruns.add(late > 0 ? 1 : 0);
    lateFrames.add(late);
    return late;
}

void Live::give(const LiveInput& input, std::size_t at, std::size_t count) noexcept
{
    std::array<InputFrame, 64> piece; // NOLINT(cppcoreguidelines-pro-type-member-init): filled as needed
    for (const std::size_t end = at + count; at < end;)
    {
        const std::size_t length = std::min(end - at, piece.size());
        for (std::size_t i = 0; i < length; ++i, ++at)
        {
            const bool silent = input.left == nullptr || input.right == nullptr;
            piece[i] = {given + i, silent ? 0.0F : finite(input.left[at * input.stride]),
                        silent ? 0.0F : finite(input.right[at * input.stride])};
            if (choices.dry)
                history[piece[i].number % history.size()] = piece[i];
        }
        pass(piece.data(), length);
    }
}

// What finds no room is lost, and the worker begins anew behind it: all that it could still make of the
// frames that wait would come too late.
void Live::pass(const InputFrame* frames, std::size_t count) noexcept
{
    given += count;
    bool lost = !exchange.give(frames, count);
    for (; lost && offline; lost = !exchange.give(frames, count))
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (lost)
        beginStream();
    restarts.add(lost && !behind ? 1 : 0);
    behind = lost;
}

std::size_t Live::take(const LiveOutput& output, std::size_t at, std::size_t count) noexcept
{
    const std::int64_t first = heard() - static_cast<std::int64_t>(count);
    const auto before = static_cast<std::size_t>(std::clamp<std::int64_t>(
        static_cast<std::int64_t>(firstHeard) - first, 0, static_cast<std::int64_t>(count)));
    silence(output, at, before);
    exchange.stemsFrom(firstHeard); // blocks of former streams go back even while nothing is heard
    at += before;
    auto number = static_cast<std::uint64_t>(first + static_cast<std::int64_t>(before));
    if (offline && before < count)
        worker.waitFor(number + count - before);
    std::size_t late = 0;
    for (std::size_t left = count - before; left > 0;)
    {
        const StemBlock* stems = exchange.stemsFrom(number);
        const bool missing = stems == nullptr || stems->first > number;
        const std::uint64_t length =
            stems == nullptr ? left : (missing ? stems->first : stems->end()) - number;
        const auto some = static_cast<std::size_t>(std::min<std::uint64_t>(length, left));
        if (missing)
            leaveOut(output, at, some, number);
        else
            copyOut(*stems, number, output, at, some);
        late += missing ? some : 0;
        at += some;
        number += some;
        left -= some;
    }
    return late;
}

void Live::leaveOut(const LiveOutput& output, std::size_t at, std::size_t count,
                    std::uint64_t number) noexcept
{
    silence(output, at, count);
    if (!choices.dry)
        return;
    float* left = output.channels[geometry::channels * residualStem];
    float* right = output.channels[geometry::channels * residualStem + 1];
    for (std::size_t i = 0; i < count; ++i)
    {
        const InputFrame& frame = history[(number + i) % history.size()];
        if (left != nullptr)
            left[(at + i) * output.stride] = frame.left;
        if (right != nullptr)
            right[(at + i) * output.stride] = frame.right;
    }
}

void Live::reset(std::int64_t position) noexcept
{
    offset = position - static_cast<std::int64_t>(given);
    firstHeard = given;
    beginStream();
}

void Live::beginStream() noexcept
{
    if (begin == given) // nothing of it has been given yet
        return;
    begin = given;
    worker.beginStream(given);
}

void Live::tell(tonwerk_live_info& info) const
{
    const LiveWorker::Record& record = worker.record();
    info.block = static_cast<std::uint32_t>(choices.block);
    info.latency = delay;
    info.underruns = underruns.get();
    info.late_frames = lateFrames.get();
    info.restarts = restarts.get();
    info.runs = record.runs.get();
    info.failed_runs = record.failedRuns.get();
    info.cancelled_runs = record.cancelledRuns.get();
    info.last_run_seconds = record.lastSeconds;
    info.worst_run_seconds = record.worstSeconds;
    info.load = record.load;
}

} // namespace tonwerk::c
