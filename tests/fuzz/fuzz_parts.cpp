// SPDX-License-Identifier: MIT
// The ring buffer, the shift, the windows and the chunk pipeline with small sizes, each against the plainest
// code that does the same.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <vector>

#include "fuzz/FuzzInput.h"
#include "pipeline/BufferAggregator.h"
#include "pipeline/ChunkProcessor.h"
#include "pipeline/ShiftArray.h"
#include "spectral/WindowFunctions.h"
#include "support/FakeInference.h"

namespace
{

/// A {rows, count} block that counts on from `next`, negated in odd rows.
Array countingBlock(std::size_t rows, std::size_t count, float next)
{
    Array block = Array::from_shape({rows, count});
    for (std::size_t row = 0; row < rows; ++row)
        for (std::size_t i = 0; i < count; ++i)
            block(row, i) = (row % 2 == 0 ? 1.0F : -1.0F) * (next + static_cast<float>(i));
    return block;
}

/// Pushes such a block in one of the ways that there are.
void pushBlock(BufferAggregator& buffer, const Array& block, std::uint32_t way)
{
    const std::size_t rows = block.shape(0);
    const std::size_t count = block.shape(1);
    if (way == 0)
        buffer.push(block);
    else if (way == 1)
        buffer.push(SampleBlock{block.data(), rows, count, count, 1});
    else
    {
        const std::size_t stride = rows + (way - 2);
        std::vector<float> samples(count * stride);
        for (std::size_t row = 0; row < rows; ++row)
            for (std::size_t i = 0; i < count; ++i)
                samples[i * stride + row] = block(row, i);
        buffer.push(SampleBlock{samples.data(), rows, count, 1, stride});
    }
}

Array takeBlock(BufferAggregator& buffer, std::size_t rows, std::size_t count, std::size_t keep)
{
    Array block = Array::from_shape({rows, count});
    buffer.take(count, keep, block.data(), count);
    return block;
}

void checkFront(const Array& block, const std::deque<float>& queue)
{
    promise(block.dimension() == 2, "a flat buffer returns flat blocks");
    for (std::size_t row = 0; row < block.shape(0); ++row)
        for (std::size_t i = 0; i < block.shape(1); ++i)
            promise(block(row, i) == (row % 2 == 0 ? queue[i] : -queue[i]), "first in, first out");
}

void ringBuffer(FuzzInput& input)
{
    const std::size_t rows = 1 + input.below(3);
    const std::size_t size = input.below(48);
    BufferAggregator buffer(rows, size, 1);
    std::deque<float> queue; // of the first row
    float next = 1.0F;
    while (!input.empty())
    {
        const std::size_t choice = input.below(8);
        if (choice < 5)
        {
            const std::size_t count = input.below(size + 3);
            const bool fits = queue.size() + count <= size;
            try
            {
                pushBlock(buffer, countingBlock(rows, count, next), static_cast<std::uint32_t>(choice) % 4);
                promise(fits, "an overflow is refused");
                for (std::size_t i = 0; i < count; ++i)
                    queue.push_back(next++);
            }
            catch (const std::exception&)
            {
                promise(!fits, "what fits is taken");
            }
        }
        else if (choice < 7)
        {
            const std::size_t requested = input.below(size + 3);
            const std::size_t count = requested != 0 ? requested : queue.size();
            const std::size_t keep = count == 0 ? 0 : input.below(count);
            const bool take = choice == 6 && count <= queue.size();
            const Array block = take ? takeBlock(buffer, rows, count, keep) : buffer.get(requested, keep);
            if (take && count == 0)
                continue;
            promise((block.dimension() == 0) == (queue.empty() || queue.size() < count),
                    "no less than asked for");
            if (block.dimension() == 0)
                continue;
            promise(block.shape(1) == count, "as much as asked for");
            checkFront(block, queue);
            queue.erase(queue.begin(), queue.begin() + static_cast<std::ptrdiff_t>(count - keep));
        }
        else
        {
            const Array block = buffer.flush();
            promise(block.shape(1) == queue.size(), "all of it");
            checkFront(block, queue);
            queue.clear();
        }
        promise(buffer.heldSamples() == queue.size(), "what is held");
    }
}

void shift(FuzzInput& input)
{
    const std::size_t rows = input.below(4);
    const std::size_t length = input.below(40);
    const std::size_t step = input.below(60);
    FixedArray<2> values = FixedArray<2>::from_shape({rows, length});
    float next = 1.0F;
    for (float& value : values)
        value = next++;
    const FixedArray<2> before = values;
    shiftArray(values, step);
    for (std::size_t row = 0; row < rows; ++row)
        for (std::size_t i = 0; i < length; ++i)
            promise(values(row, i) == (i + step < length ? before(row, i + step) : 0.0F), "left, then zeros");
}

void windows(FuzzInput& input)
{
    constexpr double twoPi = 6.283185307179586;
    const auto length = static_cast<std::int32_t>(input.below(8200));
    const auto window = makeWindow(WindowType::Blackman, length);
    promise(window.size() == static_cast<std::size_t>(length), "as long as asked for");
    for (std::size_t i = 0; i < window.size(); ++i)
    {
        const double angle = twoPi * static_cast<double>(i) / length;
        const double value = 0.42 - 0.5 * std::cos(angle) + 0.08 * std::cos(2.0 * angle);
        promise(std::abs(static_cast<double>(window[i]) - value) < 1e-6, "a Blackman window");
    }
}

/// Frames of 64 samples 16 apart and segments of 20 frames; the mixture comes back bit by bit, and so does,
/// within what the pipeline loses at half the sample rate, the stem of an identity model.
void chunks(FuzzInput& input)
{
    constexpr std::size_t hop = 16;
    constexpr std::size_t capacity = 480;
    ChunkProcessor processor(std::make_shared<FakeInference>(identityModel()), 2, 64, hop, 0, 20, 1);
    std::size_t held = 0;
    std::deque<float> queue;
    float next = 1.0F;
    for (bool eof = false; !eof;)
    {
        const std::size_t ready = processor.readyThreshold();
        const bool first = ready == 240;
        const std::size_t choice = input.below(4);
        const std::size_t wanted =
            choice == 0 ? ready : (choice == 1 ? hop * input.below(20) : input.below(256));
        const std::size_t count = std::min(wanted, capacity - held);
        eof = input.empty() || input.below(32) == 0;
        // A chunk that is no whole number of hops breaks the stream's alignment, so hosts avoid it.
        const std::size_t taken = std::min<std::size_t>(held + count, first ? 304 : 336);
        if (!eof && held + count >= ready && taken % hop != 0)
            continue;
        const Array block = countingBlock(2, count, next);
        const std::size_t announced = processor.push({block.data(), 2, count, count, 1}, eof);
        for (std::size_t i = 0; i < count; ++i)
            queue.push_back(next++);
        held += count;
        if (announced == 0)
        {
            promise(eof ? held == 0 : held < ready, "results come when enough is held, and at the end");
            continue;
        }
        held = eof ? 0 : held - (taken - 64);
        const SampleRows result = processor.process(eof);
        const std::size_t length = result.length;
        promise(result.rowCount == 4 && length == announced, "as long as announced");
        promise(length <= queue.size(), "nothing comes back that did not go in");
        for (std::size_t i = 0; i < length; ++i)
        {
            promise(result.row(2)[i] == queue[i] && result.row(3)[i] == -queue[i],
                    "the mixture is the input");
            promise(std::isfinite(result.row(0)[i]), "the stem is finite");
        }
        queue.erase(queue.begin(), queue.begin() + static_cast<std::ptrdiff_t>(length));
    }
    promise(queue.empty(), "as much as went in");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    switch (input.below(4))
    {
    case 0:
        ringBuffer(input);
        break;
    case 1:
        shift(input);
        break;
    case 2:
        windows(input);
        break;
    default:
        chunks(input);
    }
    return 0;
}
