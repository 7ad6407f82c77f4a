// SPDX-License-Identifier: MIT
/// \file Workload.h
/// What the benchmarks share: the sizes of a steady-state chunk, its signals, its processor.
#ifndef TONWERK_BENCH_WORKLOAD_H
#define TONWERK_BENCH_WORKLOAD_H

#include <cstddef>
#include <string>
#include <vector>

#include "tonwerk/TonwerkProc.h"

inline constexpr std::size_t fftSize = 4096;
inline constexpr std::size_t hop = 1024;
inline constexpr std::size_t channels = 2;
inline constexpr std::size_t stems = 6;
inline constexpr std::size_t segmentFrames = 256;
inline constexpr std::size_t blockFrames = 254976; ///< of a steady-state block
inline constexpr std::size_t newFrames = blockFrames / hop;
inline constexpr std::size_t outputFloats = 2 * channels * segmentFrames * fftSize / 2; ///< of a model output

/// White noise of half the full scale, the same in every run.
std::vector<float> noise(std::size_t count);

/// How many of the six stems are selected.
enum class Selection
{
    All,
    VocalsOnly
};

/// A processor of its own on a context of its own, on the network of this benchmark program.
/// \param model the network's bytes; empty for the one that costs nothing
tonwerk::TonwerkProc makeProcessor(bool interleaved, Selection selection = Selection::All,
                                   const std::string& model = {});

/// Feeds what comes before the steady state.
void warmUp(tonwerk::TonwerkProc& processor);

#endif // TONWERK_BENCH_WORKLOAD_H
