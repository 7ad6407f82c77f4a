// SPDX-License-Identifier: MIT
/// \file CountingAllocator.h
/// Replaces operator new and delete of a test program: counts the blocks that live and refuses one on
/// request.
#ifndef TONWERK_TESTS_FAULTS_COUNTINGALLOCATOR_H
#define TONWERK_TESTS_FAULTS_COUNTINGALLOCATOR_H

#include <cstddef>

/// Blocks from operator new that have not been deleted yet.
std::size_t livingBlocks();

/// Lets the n-th allocation from now on throw std::bad_alloc, all others succeed; 0 for none.
void refuseAllocation(std::size_t n);

/// Whether the refusal asked for has happened.
bool allocationWasRefused();

#endif // TONWERK_TESTS_FAULTS_COUNTINGALLOCATOR_H
