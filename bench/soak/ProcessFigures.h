// SPDX-License-Identifier: MIT
/// \file ProcessFigures.h
/// What the system says of this process.
#ifndef TONWERK_BENCH_PROCESSFIGURES_H
#define TONWERK_BENCH_PROCESSFIGURES_H

#include <cstddef>

struct ProcessFigures
{
    double megabytes;     ///< resident memory, 10^6 bytes
    double peakMegabytes; ///< the most that it ever was
    std::size_t threads;
    std::size_t handles; ///< open files, sockets and other objects of the kernel
};

/// \throws std::runtime_error if the system does not tell
ProcessFigures processFigures();

#endif // TONWERK_BENCH_PROCESSFIGURES_H
