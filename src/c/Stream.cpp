// SPDX-License-Identifier: MIT
#include "c/Stream.h"

#include <algorithm>
#include <array>
#include <utility>

#include "c/Failures.h"
#include "common/FlushDenormals.h"

namespace tonwerk::c
{

namespace
{

StemSelection selectionOf(std::uint32_t stems)
{
    StemSelection selection{};
    for (std::size_t stem = 0; stem < selection.size(); ++stem)
        selection.at(stem) = (stems >> stem & 1U) != 0;
    return selection;
}

} // namespace

Stream::Stream(std::shared_ptr<Context> context, std::uint32_t stems, RunGeometry geometry)
    : context(std::move(context)), stems(stems), silentStems(selectionOf(~stems)), geometry(geometry),
      inference(std::make_shared<StreamInference>(this->context, flagsOf(selectionOf(stems)))),
      engine(inference, geometry)
{
}

/// Calls `action` if the stream takes input. The stream has failed if that throws.
template <typename Action>
tonwerk_status Stream::whileOpen(State afterwards, Action action) noexcept
{
    const LogScope log(context->log());
    const FlushDenormals flushed;
    if (state == State::Ended)
        return report(TONWERK_STREAM_ENDED, "");
    if (state == State::Failed)
        return report(TONWERK_STREAM_FAILED, "It failed in an earlier call.");
    if (state == State::Cancelled || inference->isCancelled())
    {
        state = State::Cancelled;
        return report(TONWERK_CANCELLED, "");
    }
    state = State::Failed;
    return guarded(TONWERK_STREAM_FAILED,
                   [&]() -> tonwerk_status
                   {
                       try
                       {
                           action();
                           state = afterwards;
                           return TONWERK_OK;
                       }
                       catch (const RunCancelled&)
                       {
                           state = State::Cancelled;
                           return report(TONWERK_CANCELLED, "");
                       }
                   });
}

tonwerk_status Stream::push(const float* left, const float* right, std::size_t step,
                            std::size_t frames) noexcept
{
    return whileOpen(State::Open, [&] { feed(left, right, step, frames); });
}

// The engine takes both channels from one block, so they are gathered in one, a piece at a time.
void Stream::feed(const float* left, const float* right, std::size_t step, std::size_t frames)
{
    constexpr std::size_t pieceFrames = 512;
    std::array<float, 2 * pieceFrames>
        piece; // NOLINT(cppcoreguidelines-pro-type-member-init): filled as needed
    while (frames > 0)
    {
        const std::size_t count = std::min({frames, pieceFrames, engine.samplesUntilResult()});
        for (std::size_t i = 0; i < count; ++i)
        {
            piece[i] = left[i * step];
            piece[pieceFrames + i] = right[i * step];
        }
        // One result at a time: those before a failure can still be read.
        queue.push(engine.feed({piece.data(), 2, count, pieceFrames, 1}, silentStems));
        left += count * step;
        right += count * step;
        frames -= count;
    }
}

tonwerk_status Stream::flush() noexcept
{
    return whileOpen(State::Ended, [&] { queue.push(engine.finish(silentStems)); });
}

void Stream::reset() noexcept
{
    const LogScope log(context->log());
    engine.reset();
    queue.clear();
    inference->clearRecord();
    inference->allow();
    state = State::Open;
}

std::uint64_t Stream::framesUntilResult() const
{
    return state == State::Open ? engine.samplesUntilResult() : 0;
}

void Stream::tell(tonwerk_stream_info& info) const
{
    const StreamInference::Record& record = inference->record();
    info.stems = stems;
    info.step = static_cast<std::uint32_t>(geometry.step);
    info.lookahead = static_cast<std::uint32_t>(geometry.lookahead);
    info.blend = static_cast<std::uint32_t>(geometry.blend);
    info.latency = latency();
    info.frames_until_result = framesUntilResult();
    info.available = queue.available();
    info.runs = record.runs;
    info.failed_runs = record.failedRuns;
    info.last_run_seconds = record.lastSeconds;
    info.worst_run_seconds = record.worstSeconds;
}

} // namespace tonwerk::c
