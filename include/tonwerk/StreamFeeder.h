// SPDX-License-Identifier: MIT
/// \file StreamFeeder.h
/// Blocks of any size for a TonwerkProc, which by itself wants blocks that keep to whole hops.
///
/// \code
/// tonwerk::StreamFeeder feeder(context, config);
/// while (const auto block = nextBlock()) // 441 frames, 480, 1,000 ...
///     use(feeder.feed(block->samples, block->frames));
/// use(feeder.finish());
/// \endcode
///
/// Header-only: it adds nothing to the library's binary interface. Needs C++17.

#ifndef TONWERK_STREAMFEEDER_H
#define TONWERK_STREAMFEEDER_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include <tonwerk/StreamGeometry.h>
#include <tonwerk/TonwerkProc.h>

namespace tonwerk
{

/// One stream with a processor of its own, which is called with exactly TonwerkProc::maxInputSize() frames
/// each time, and with what remains at the end. So the stems are the same, bit for bit, however the input is
/// cut.
///
/// ### Latency
/// The first result comes with frame 257,024 and is 252,928 frames long, each later one comes 254,976 frames
/// on and is as long as that. In between nothing comes, so at most `latencyFrames` frames have been fed and
/// not returned. A `feed` that completes a chunk takes as long as a run of the model; every other one only
/// copies.
///
/// ### Memory
/// One block of 257,024 frames (2 MB) besides the processor, made by the constructor. Later calls allocate
/// what the processor allocates and what they return.
///
/// ### Exceptions
/// What is refused before a sample has been taken leaves the stream as it was: a call after the end, or an
/// odd number of samples. An exception out of the processor leaves unknown what has become of its block;
/// rather than go on out of place, the stream has then failed, and every later call throws. Results that the
/// same call had completed before are lost with it, which cannot happen to calls of at most
/// `framesUntilResult()` frames.
///
/// ### Threads
/// As TonwerkProc: one thread at a time, and streams of one context must not overlap.
class StreamFeeder
{
public:
    /// As TonwerkProc::process returns them: no vectors, or eight of equal length.
    using Stems = std::vector<std::vector<float>>;

    /// After n frames have been fed, at least n - latencyFrames have been returned, whatever the blocks: a
    /// host that delays its other signals by this many frames, 259,071, always has the stems in time. At
    /// 44.1 kHz that is 5.9 s.
    static constexpr std::uint64_t latencyFrames = geometry::latency;

    /// Builds a processor on the model, which it keeps alive.
    /// \throws std::invalid_argument if the configuration has another number of channels than 2
    /// \throws std::exception as the constructor of TonwerkProc
    StreamFeeder(std::shared_ptr<InferenceContext> context, TonwerkProcConfig config)
        : interleaved(checkedLayout(config)),
          // The record's unnamed bits never have a value: NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage)
          processor(std::move(context), config), block(2 * processorFrames())
    {
    }

    StreamFeeder(const StreamFeeder&) = delete;
    StreamFeeder& operator=(const StreamFeeder&) = delete;

    /// Feeds the next block of the stream.
    /// \param samples two channels of `frames` samples each, in the configured order: interleaved, or planar,
    ///        which is all of this block's left channel and then all of its right one. Read during the call
    ///        only; may be null if `frames` is 0
    /// \param frames any number; a block that completes several chunks returns them joined
    /// \return no vectors while too little is gathered, otherwise the eight stems as TonwerkProc::process
    ///         returns them, in the configured order
    /// \throws std::logic_error if the stream has ended or failed
    /// \throws std::exception as TonwerkProc::process; the stream has failed then
    Stems feed(const float* samples, std::size_t frames)
    {
        requireOpen();
        state = State::Failed; // until all has gone well
        std::vector<Stems> results;
        for (std::size_t position = 0; position < frames;)
        {
            const std::size_t count = std::min(frames - position, blockFrames() - held);
            gather(samples, frames, position, count);
            position += count;
            if (held == blockFrames())
                processBlock(results);
        }
        Stems stems = joined(results);
        state = State::Open;
        return stems;
    }

    /// The same for a vector, of 2 samples per frame.
    /// \throws std::invalid_argument if the number of samples is odd
    Stems feed(const std::vector<float>& samples)
    {
        if (samples.size() % 2 != 0)
            throw std::invalid_argument("A stereo block cannot have an odd number of samples");
        return feed(samples.data(), samples.size() / 2);
    }

    /// Ends the stream and returns all that is still held, so that as many frames have come back as went in.
    /// \return no vectors if nothing was ever fed
    /// \throws std::logic_error if the stream has ended or failed
    /// \throws std::exception as TonwerkProc::process; the stream has failed then
    Stems finish()
    {
        requireOpen();
        state = State::Failed;
        if (!interleaved) // the right channel moves up to the end of the left one
            std::copy_n(block.begin() + offset(blockFrames()), held, block.begin() + offset(held));
        block.resize(2 * held);
        Stems stems = processor.process(block, true);
        state = State::Ended;
        return stems;
    }

    /// Frames to feed until the model runs next and a result comes; 0 if the stream has ended or failed.
    std::size_t framesUntilResult() const noexcept { return state == State::Open ? blockFrames() - held : 0; }

private:
    enum class State
    {
        Open,
        Ended,
        Failed
    };

    static bool checkedLayout(const TonwerkProcConfig& config)
    {
        if (config.channels != 2)
            throw std::invalid_argument("Only 2 channels are supported");
        return config.interleaved;
    }

    static std::ptrdiff_t offset(std::size_t samples) { return static_cast<std::ptrdiff_t>(samples); }

    void requireOpen() const
    {
        if (state == State::Ended)
            throw std::logic_error("The stream has ended");
        if (state == State::Failed)
            throw std::logic_error("The stream has failed");
    }

    std::size_t processorFrames() const { return static_cast<std::size_t>(processor.maxInputSize()); }

    std::size_t blockFrames() const noexcept { return block.size() / 2; }

    /// Appends `count` of the host's `frames` frames to the block, which has room for them.
    void gather(const float* samples, std::size_t frames, std::size_t position, std::size_t count)
    {
        if (interleaved)
        {
            std::copy_n(samples + 2 * position, 2 * count, block.begin() + offset(2 * held));
        }
        else
        {
            std::copy_n(samples + position, count, block.begin() + offset(held));
            std::copy_n(samples + frames + position, count, block.begin() + offset(blockFrames() + held));
        }
        held += count;
    }

    void processBlock(std::vector<Stems>& results)
    {
        Stems stems = processor.process(block, false);
        if (!stems.empty())
            results.push_back(std::move(stems));
        held = 0;
        block.resize(2 * processorFrames()); // less than at first: no new memory
    }

    Stems joined(std::vector<Stems>& results) const
    {
        if (results.empty())
            return {};
        if (results.size() == 1)
            return std::move(results.front());
        Stems stems;
        for (std::size_t stem = 0; stem < results.front().size(); ++stem)
        {
            stems.push_back(joinedStem(results, stem));
            for (Stems& result : results) // so that the whole is not held twice
                result[stem] = {};
        }
        return stems;
    }

    /// One result after the other; if they are planar, all of the left channel first.
    std::vector<float> joinedStem(const std::vector<Stems>& results, std::size_t stem) const
    {
        std::size_t length = 0;
        for (const Stems& result : results)
            length += result[stem].size();
        std::vector<float> whole;
        whole.reserve(length);
        const std::size_t parts = interleaved ? 1 : 2;
        for (std::size_t part = 0; part < parts; ++part)
            for (const Stems& result : results)
            {
                const std::size_t count = result[stem].size() / parts;
                const auto first = result[stem].begin() + offset(part * count);
                whole.insert(whole.end(), first, first + offset(count));
            }
        return whole;
    }

    bool interleaved;
    TonwerkProc processor;
    std::vector<float> block;
    std::size_t held = 0; // frames gathered in `block`
    State state = State::Open;
};

} // namespace tonwerk

#endif // TONWERK_STREAMFEEDER_H
