// SPDX-License-Identifier: MIT
/// \file Allocations.h
/// Replaces operator new of a benchmark program by one that counts.
#ifndef TONWERK_BENCH_ALLOCATIONS_H
#define TONWERK_BENCH_ALLOCATIONS_H

#include <cstddef>

/// Allocations by operator new since the program began.
struct Allocations
{
    std::size_t count;
    std::size_t bytes;
};

Allocations allocations();

#endif // TONWERK_BENCH_ALLOCATIONS_H
