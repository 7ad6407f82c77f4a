// SPDX-License-Identifier: MIT
#include "pipeline/BufferAggregator.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

#include "common/Log.h"

namespace
{

/// Where row `row` of entry `entry` begins in an array of rank 2 or 3. Extents of 1 have stride 0, so that
/// they repeat, as broadcasting wants it.
const float* sourceRow(const Array& chunk, std::size_t entry, std::size_t row)
{
    const auto& strides = chunk.strides();
    const std::size_t rank = chunk.dimension();
    std::ptrdiff_t offset = 0;
    if (rank >= 2)
        offset += static_cast<std::ptrdiff_t>(row) * strides[rank - 2];
    if (rank >= 3)
        offset += static_cast<std::ptrdiff_t>(entry) * strides[rank - 3];
    return chunk.data() + offset;
}

using Extents = std::array<std::size_t, 3>;

/// Raises the array library's own exception if `chunk` cannot be broadcast to `destination`.
void requireFittingRows(const Array& chunk, const Extents& destination)
{
    auto broadcast = destination;
    xt::broadcast_shape(chunk.shape(), broadcast);
    if (broadcast != destination) // a destination extent of 1 would have had to grow
        xt::throw_broadcast_error(chunk.shape(), destination);
}

/// The same for a block, whose channels must be as many as there are rows.
void requireFittingRows(const SampleBlock& block, const Extents& destination)
{
    if (block.channels != destination[1])
        xt::throw_broadcast_error(std::array{block.channels, block.samples}, destination);
}

void copySamples(const float* source, std::size_t stride, std::size_t count, float* target)
{
    constexpr std::size_t stereo = 2;
    if (stride == 1)
        std::copy_n(source, count, target);
    else if (stride == stereo)
        for (std::size_t i = 0; i < count; ++i) // a stride that the compiler knows makes this twice as fast
            target[i] = source[stereo * i];
    else
        for (std::size_t i = 0; i < count; ++i)
            target[i] = source[stride * i];
}

} // namespace

BufferAggregator::BufferAggregator(std::size_t channels, std::size_t size, std::int32_t batch)
    : buffer(FixedArray<3>::from_shape({static_cast<std::size_t>(batch), channels, size})), length(0),
      start(0), batch(batch)
{
    TONWERK_LOG(debug) << "BufferAggregator constructor - channels: " << channels << ", size: " << size
                       << ", batch: " << batch;
    TONWERK_LOG(verbose) << "Buffer shape: [" << buffer.shape(0) << ", " << buffer.shape(1) << ", "
                         << buffer.shape(2) << "]";
    TONWERK_LOG(verbose) << "Buffer total size: " << buffer.size() << " elements";
}

void BufferAggregator::requireRoom(std::size_t count) const
{
    if (buffer.shape(2) - length < count)
        throw std::runtime_error("Buffer overflow: cannot accept chunk of size " + std::to_string(count));
}

void BufferAggregator::push(const Array& chunk)
{
    const std::size_t count = lastExtent(chunk);
    requireRoom(count);
    requireFittingRows(chunk, {buffer.shape(0), buffer.shape(1), count});
    for (std::size_t entry = 0; entry < buffer.shape(0); ++entry)
        for (std::size_t row = 0; row < buffer.shape(1); ++row)
            append(sourceRow(chunk, entry, row), 1, count, ringAt(entry, row));
    length += count;
}

void BufferAggregator::push(const SampleBlock& block)
{
    requireRoom(block.samples);
    requireFittingRows(block, {buffer.shape(0), buffer.shape(1), block.samples});
    if (block.samples == 0)
        return; // there may be no memory at all that rows could lie in
    for (std::size_t entry = 0; entry < buffer.shape(0); ++entry)
        for (std::size_t row = 0; row < buffer.shape(1); ++row)
            append(block.first + row * block.channelStride, block.sampleStride, block.samples,
                   ringAt(entry, row));
    length += block.samples;
}

float* BufferAggregator::ringAt(std::size_t entry, std::size_t row)
{
    return buffer.data() + (entry * buffer.shape(1) + row) * buffer.shape(2);
}

// Behind what the ring holds, which may mean in two parts.
void BufferAggregator::append(const float* source, std::size_t stride, std::size_t count, float* ring) const
{
    if (count == 0)
        return; // also into a ring of no size
    const std::size_t writePosition = (start + length) % buffer.shape(2);
    const std::size_t first = std::min(count, buffer.shape(2) - writePosition);
    copySamples(source, stride, first, ring + writePosition);
    copySamples(source + first * stride, stride, count - first, ring);
}

void BufferAggregator::take(std::size_t count, std::size_t keep, float* target, std::size_t stride)
{
    copyOldest(count, target, stride);
    consume(count, keep);
}

Array BufferAggregator::get(std::size_t requested, std::size_t keep)
{
    const std::size_t count = requested != 0 ? requested : length;
    if (length == 0 || length < count)
    {
        TONWERK_LOG(warning) << "BufferAggregator::get - cannot return requested size: " << count
                             << ", current length: " << length;
        return {};
    }
    Array result = oldest(count);
    consume(count, keep);
    return result;
}

void BufferAggregator::consume(std::size_t count, std::size_t keep)
{
    const std::size_t consumed = count - std::min(keep, count);
    if (consumed == 0)
        return; // also from a ring of no size
    start = (start + consumed) % buffer.shape(2);
    length -= consumed;
}

void BufferAggregator::clear()
{
    length = 0;
    start = 0;
}

Array BufferAggregator::flush()
{
    if (length == 0)
        return emptyResult(batch < 2, 0);
    Array result = oldest(length);
    length = 0;
    start = 0;
    return result;
}

Array BufferAggregator::emptyResult(bool flat, std::size_t count) const
{
    if (flat)
        return Array::from_shape({buffer.shape(1), count});
    return Array::from_shape({buffer.shape(0), buffer.shape(1), count});
}

Array BufferAggregator::oldest(std::size_t count) const
{
    Array result = emptyResult(batch == 1, count);
    copyOldest(count, result.data(), count);
    return result;
}

void BufferAggregator::copyOldest(std::size_t count, float* target, std::size_t stride) const
{
    const std::size_t rows = buffer.shape(0) * buffer.shape(1);
    const std::size_t first = std::min(count, buffer.shape(2) - start);
    const float* ring = buffer.data();
    for (std::size_t row = 0; row < rows; ++row, ring += buffer.shape(2), target += stride)
    {
        float* wrapped = std::copy_n(ring + start, first, target);
        std::copy_n(ring, count - first, wrapped);
    }
}
