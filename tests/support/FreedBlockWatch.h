/// \file FreedBlockWatch.h
/// Looks at a block of memory at the moment it is freed. A program that links FreedBlockWatch.cpp gets its
/// operator delete[].
#ifndef TONWERK_TESTS_SUPPORT_FREEDBLOCKWATCH_H
#define TONWERK_TESTS_SUPPORT_FREEDBLOCKWATCH_H

#include <cstddef>

enum class FreedBlock
{
    NotFreed,
    FreedWiped,      ///< every byte was 0
    FreedWithContent ///< at least one byte was not
};

/// Watches the block of `size` bytes that new[] returned at `block`, instead of any block watched before.
void watchBlock(const void* block, std::size_t size);

/// What has become of the watched block.
FreedBlock watchedBlock();

#endif // TONWERK_TESTS_SUPPORT_FREEDBLOCKWATCH_H
