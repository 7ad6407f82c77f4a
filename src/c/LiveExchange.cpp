// SPDX-License-Identifier: MIT
#include "c/LiveExchange.h"

namespace tonwerk::c
{

LiveExchange::LiveExchange(std::size_t inputFrames, std::size_t stemBlocks)
    : blocks(stemBlocks), input(inputFrames), full(stemBlocks), empty(stemBlocks)
{
    for (StemBlock& block : blocks)
        empty.push(&block);
}

bool LiveExchange::give(const InputFrame* frames, std::size_t count)
{
    return input.write_available() >= count && input.push(frames, count) == count;
}

const StemBlock* LiveExchange::stemsFrom(std::uint64_t number)
{
    while (current != nullptr || full.pop(current))
    {
        if (current->end() > number)
            return current;
        empty.push(current);
        current = nullptr;
    }
    return nullptr;
}

std::size_t LiveExchange::take(InputFrame* frames, std::size_t most)
{
    return input.pop(frames, most);
}

StemBlock* LiveExchange::emptyBlock()
{
    StemBlock* block = nullptr;
    return empty.pop(block) ? block : nullptr;
}

void LiveExchange::publish(StemBlock* block)
{
    full.push(block);
}

} // namespace tonwerk::c
