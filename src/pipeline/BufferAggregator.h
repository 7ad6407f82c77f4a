// SPDX-License-Identifier: MIT
#ifndef TONWERK_PIPELINE_BUFFERAGGREGATOR_H
#define TONWERK_PIPELINE_BUFFERAGGREGATOR_H

#include <cstddef>
#include <cstdint>

#include "common/Arrays.h"

/// A block of samples where the host has it: sample i of channel c is first[c * channelStride + i *
/// sampleStride].
struct SampleBlock
{
    const float* first;
    std::size_t channels;
    std::size_t samples; ///< per channel
    std::size_t channelStride;
    std::size_t sampleStride;
};

/// Multichannel ring buffer of fixed capacity between the host's blocks and the model's chunks.
///
/// It speaks in {channels, samples} arrays when `batch` is 1, otherwise in {batch, channels, samples}. All
/// rows always hold the same number of samples. It never blocks, grows or drops samples. One thread at a
/// time.
class BufferAggregator
{
public:
    /// Allocates room for `size` samples per row (at least 1).
    BufferAggregator(std::size_t channels, std::size_t size, std::int32_t batch);

    /// Appends a block {channels, n} or {batch, channels, n}; extents of 1 are broadcast, as is a missing
    /// batch axis.
    /// \throws std::runtime_error "Buffer overflow: cannot accept chunk of size n"; nothing has changed then
    /// \throws std::exception (the array library's) if the block does not fit the rows; nothing has changed
    ///         then
    void push(const Array& chunk);

    /// Appends a block with as many channels as the buffer has; its batch entries get the same.
    /// \throws as above, but no channel is broadcast
    void push(const SampleBlock& block);

    /// Copies the oldest `count` samples, at most heldSamples(), out to rows that begin `stride` samples
    /// apart, and keeps the newest `keep` of them as the beginning of the next block.
    void take(std::size_t count, std::size_t keep, float* target, std::size_t stride);

    /// Copies out the oldest `requested` samples (0: all) and keeps the newest `keep` of them as the
    /// beginning of the next block.
    /// \return an array without dimensions, and a warning in the log, if fewer than `requested` samples are
    ///         held
    Array get(std::size_t requested, std::size_t keep);

    /// Copies out everything and empties the buffer. Without samples the result's last extent is 0.
    Array flush();

    /// Forgets all samples.
    void clear();

    /// Samples held per row.
    std::size_t heldSamples() const { return length; }

private:
    void requireRoom(std::size_t count) const;
    float* ringAt(std::size_t entry, std::size_t row);
    void append(const float* source, std::size_t stride, std::size_t count, float* ring) const;
    void consume(std::size_t count, std::size_t keep);
    Array oldest(std::size_t count) const;
    void copyOldest(std::size_t count, float* target, std::size_t stride) const;
    Array emptyResult(bool flat, std::size_t count) const;

    FixedArray<3> buffer;
    std::size_t length;
    std::size_t start;
    std::int32_t batch;
};

#endif // TONWERK_PIPELINE_BUFFERAGGREGATOR_H
