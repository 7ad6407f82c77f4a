// SPDX-License-Identifier: MIT
#ifndef TONWERK_C_STREAM_H
#define TONWERK_C_STREAM_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "c/Context.h"
#include "c/StemQueue.h"
#include "c/StreamInference.h"
#include "common/Stems.h"
#include "pipeline/SteppedStream.h"

namespace tonwerk::c
{

/// One audio stream: takes blocks of any size and keeps what they complete until it is read. One thread at a
/// time but for cancel().
class Stream
{
public:
    /// \param stems    bits of the stems to ask of the model
    /// \param geometry without a fault
    Stream(std::shared_ptr<Context> context, std::uint32_t stems, RunGeometry geometry);

    /// As tonwerk_stream_push; both channels have the stride `step`.
    tonwerk_status push(const float* left, const float* right, std::size_t step, std::size_t frames) noexcept;

    /// As tonwerk_stream_flush.
    tonwerk_status flush() noexcept;

    /// As tonwerk_stream_reset.
    void reset() noexcept;

    /// As tonwerk_stream_cancel.
    void cancel() { inference->cancel(); }

    /// cancel() for a thread that must not wait, while this thread or another one is in a call: wait-free.
    /// Must not overlap with cancel() or reset().
    void interrupt() noexcept { inference->interrupt(); }

    /// What can be read.
    StemQueue& results() { return queue; }
    const StemQueue& results() const { return queue; }

    /// Frames to push until a result can come; 0 if the stream takes no more.
    std::uint64_t framesUntilResult() const;

    std::uint64_t latency() const { return engine.latency(); }

    /// Fills all but the size.
    void tell(tonwerk_stream_info& info) const;

private:
    enum class State
    {
        Open,
        Ended,
        Failed,
        Cancelled
    };

    template <typename Action>
    tonwerk_status whileOpen(State afterwards, Action action) noexcept;
    void feed(const float* left, const float* right, std::size_t step, std::size_t frames);

    std::shared_ptr<Context> context;
    std::uint32_t stems;
    StemSelection silentStems;
    RunGeometry geometry;
    std::shared_ptr<StreamInference> inference;
    SteppedStream engine;
    StemQueue queue;
    State state = State::Open;
};

} // namespace tonwerk::c

#endif // TONWERK_C_STREAM_H
