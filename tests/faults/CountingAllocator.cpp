// SPDX-License-Identifier: MIT
#include "faults/CountingAllocator.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{

std::atomic<std::size_t> living{0};
std::atomic<std::size_t> remaining{0}; // allocations until the refused one, 0 if none is to be refused
std::atomic<bool> refused{false};

} // namespace

std::size_t livingBlocks()
{
    return living;
}

void refuseAllocation(std::size_t n)
{
    refused = false;
    remaining = n;
}

bool allocationWasRefused()
{
    return refused;
}

void* operator new(std::size_t size)
{
    if (remaining != 0 && --remaining == 0)
    {
        refused = true;
        throw std::bad_alloc();
    }
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr)
        throw std::bad_alloc();
    ++living;
    return block;
}

void operator delete(void* block) noexcept
{
    if (block != nullptr)
        --living;
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    operator delete(block);
}
