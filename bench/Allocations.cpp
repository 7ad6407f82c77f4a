// SPDX-License-Identifier: MIT
#include "Allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{

std::atomic<std::size_t> allocatedBlocks{0};
std::atomic<std::size_t> allocatedBytes{0};

} // namespace

Allocations allocations()
{
    return {allocatedBlocks, allocatedBytes};
}

void* operator new(std::size_t size)
{
    allocatedBlocks.fetch_add(1, std::memory_order_relaxed);
    allocatedBytes.fetch_add(size, std::memory_order_relaxed);
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}
