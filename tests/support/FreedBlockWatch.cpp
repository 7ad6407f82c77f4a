#include "support/FreedBlockWatch.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace
{

const void* watched = nullptr;
std::size_t watchedSize = 0;
FreedBlock fate = FreedBlock::NotFreed;

void release(void* block) noexcept
{
    if (block != nullptr && block == watched)
    {
        const auto* bytes = static_cast<const unsigned char*>(block);
        const bool wiped =
            std::all_of(bytes, bytes + watchedSize, [](unsigned char byte) { return byte == 0; });
        fate = wiped ? FreedBlock::FreedWiped : FreedBlock::FreedWithContent;
        watched = nullptr;
    }
    std::free(block);
}

} // namespace

void watchBlock(const void* block, std::size_t size)
{
    watched = block;
    watchedSize = size;
    fate = FreedBlock::NotFreed;
}

FreedBlock watchedBlock()
{
    return fate;
}

void* operator new[](std::size_t size)
{
    if (void* block = std::malloc(size == 0 ? 1 : size))
        return block;
    throw std::bad_alloc();
}

void operator delete[](void* block) noexcept
{
    release(block);
}

void operator delete[](void* block, std::size_t) noexcept
{
    release(block);
}
