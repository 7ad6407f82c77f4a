// SPDX-License-Identifier: MIT
#ifndef TONWERK_C_LIVEEXCHANGE_H
#define TONWERK_C_LIVEEXCHANGE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <boost/lockfree/spsc_queue.hpp>

#include "common/Stems.h"
#include "tonwerk/StreamGeometry.h"

namespace tonwerk::c
{

/// Channels of all stems: left and right of every stem.
inline constexpr std::size_t stemRows = geometry::channels * stemNames.size();

/// A frame of the input. Frames are numbered from 0 on, through all streams of a live object.
struct InputFrame
{
    std::uint64_t number;
    float left;
    float right;
};

/// Some frames of all stems, row by row: left and right of every stem. A frame bears the number of the input
/// frame that it is made of.
struct StemBlock
{
    static constexpr std::size_t capacity = 1024;

    float* row(std::size_t index) { return samples.data() + index * capacity; }
    const float* row(std::size_t index) const { return samples.data() + index * capacity; }

    /// Number of the frame behind the last one.
    std::uint64_t end() const { return first + count; }

    std::uint64_t first = 0;
    std::size_t count = 0;
    std::array<float, stemRows * capacity> samples{};
};

/// What passes between an audio thread and its worker. No operation waits or allocates. Each is for one of
/// the two threads, as its name or its comment says.
class LiveExchange
{
public:
    /// \param inputFrames frames that can wait for the worker
    /// \param stemBlocks  blocks that there are for results
    LiveExchange(std::size_t inputFrames, std::size_t stemBlocks);

    /// Audio thread: passes on all of the frames.
    /// \return false if there is no room for them, and nothing has been passed on
    bool give(const InputFrame* frames, std::size_t count);

    /// Audio thread: the block that holds the frame of this number or, if that is missing, a later one; null
    /// if none has come. It is valid until the next call. Blocks before it go back to the worker.
    /// \param number frames of lower numbers will not be asked for again
    const StemBlock* stemsFrom(std::uint64_t number);

    /// Worker: takes the oldest frames.
    /// \return how many
    std::size_t take(InputFrame* frames, std::size_t most);

    /// Worker: a block to fill; null if all are under way.
    StemBlock* emptyBlock();

    /// Worker: passes on a block that emptyBlock() has given.
    void publish(StemBlock* block);

private:
    std::vector<StemBlock> blocks;
    boost::lockfree::spsc_queue<InputFrame> input;
    boost::lockfree::spsc_queue<StemBlock*> full;
    boost::lockfree::spsc_queue<StemBlock*> empty;
    StemBlock* current = nullptr; ///< the audio thread's
};

} // namespace tonwerk::c

#endif // TONWERK_C_LIVEEXCHANGE_H
