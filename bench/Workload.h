// SPDX-License-Identifier: MIT
/// \file Workload.h
/// What the benchmarks share: the sizes of a steady-state chunk, its signals, its processor.
#ifndef TONWERK_BENCH_WORKLOAD_H
#define TONWERK_BENCH_WORKLOAD_H

#include <cstddef>
#include <string>
#include <vector>

#include "tonwerk/StreamGeometry.h"
#include "tonwerk/TonwerkProc.h"

using namespace tonwerk::geometry;

inline constexpr std::size_t blockFrames = laterBlock;                           ///< of a steady-state block
inline constexpr std::size_t outputFloats = 2 * channels * segmentFrames * bins; ///< of a model output

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
