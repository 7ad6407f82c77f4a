// SPDX-License-Identifier: MIT
/// \file FlushDenormals.h
/// Keeps a decaying signal from slowing its computation down.
#ifndef TONWERK_COMMON_FLUSHDENORMALS_H
#define TONWERK_COMMON_FLUSHDENORMALS_H

#include <xmmintrin.h>

/// While it lives, this thread's arithmetic takes and gives 0 for numbers below 1.2e-38 (FTZ and DAZ in the
/// SSE control register), which processors otherwise compute many times more slowly. Then the thread's former
/// mode is back.
class FlushDenormals
{
public:
    FlushDenormals() : formerMode(_mm_getcsr()) { _mm_setcsr(formerMode | flushToZero | denormalsAreZero); }
    FlushDenormals(const FlushDenormals&) = delete;
    FlushDenormals& operator=(const FlushDenormals&) = delete;
    ~FlushDenormals() { _mm_setcsr(formerMode); }

private:
    static constexpr unsigned flushToZero = 0x8000;
    static constexpr unsigned denormalsAreZero = 0x0040;

    unsigned formerMode;
};

#endif // TONWERK_COMMON_FLUSHDENORMALS_H
