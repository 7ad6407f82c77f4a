// SPDX-License-Identifier: MIT
/// \file BenchBackend.h
/// The network of the benchmarks, which costs next to nothing.
#ifndef TONWERK_BENCH_BENCHBACKEND_H
#define TONWERK_BENCH_BENCHBACKEND_H

/// What the network does with its outputs from now on: only touch their memory, as any network must, or copy
/// its input to them.
void setCopyingNetwork(bool copies);

#endif // TONWERK_BENCH_BENCHBACKEND_H
