// SPDX-License-Identifier: MIT
// What the pipeline around the network costs.
#include <cmath>
#include <cstddef>
#include <vector>

#include <benchmark/benchmark.h>

#include "Allocations.h"
#include "BenchBackend.h"
#include "Workload.h"

namespace
{

void expectWholeResult(benchmark::State& state, const std::vector<std::vector<float>>& result)
{
    if (result.size() != stems + 2 || result[0].size() != channels * blockFrames)
        state.SkipWithError("a steady-state block did not give a whole result");
}

void processChunks(benchmark::State& state, bool interleaved, Selection selection)
{
    auto processor = makeProcessor(interleaved, selection);
    warmUp(processor);
    const auto block = noise(channels * blockFrames);
    const Allocations before = allocations();
    for (auto _ : state)
        expectWholeResult(state, processor.process(block, false));
    const Allocations after = allocations();
    const auto chunks = static_cast<double>(state.iterations());
    state.counters["allocations"] = static_cast<double>(after.count - before.count) / chunks;
    state.counters["allocated_MB"] = static_cast<double>(after.bytes - before.bytes) / chunks / 1e6;
}

void chunkPlanar(benchmark::State& state)
{
    processChunks(state, false, Selection::All);
}

void chunkInterleaved(benchmark::State& state)
{
    processChunks(state, true, Selection::All);
}

void chunkOfOneStem(benchmark::State& state)
{
    processChunks(state, false, Selection::VocalsOnly);
}

enum Signal
{
    Ordinary,
    Silence,
    DecayingTail // from 1e-37 to 1e-45: most values are denormal in the signal, and more in its spectra
};

std::vector<float> signalOf(Signal kind, std::size_t count)
{
    auto samples = noise(count);
    for (std::size_t i = 0; i < count; ++i)
        if (kind == Silence)
            samples[i] = 0.0F;
        else if (kind == DecayingTail)
            samples[i] *= static_cast<float>(
                std::pow(10.0, -37.0 - 8.0 * static_cast<double>(i) / static_cast<double>(count)));
    return samples;
}

/// Some signals are slow to compute with; the network hands them on to the synthesis.
void chunkOfSignal(benchmark::State& state)
{
    setCopyingNetwork(true);
    auto processor = makeProcessor(true);
    const auto block = signalOf(static_cast<Signal>(state.range(0)), channels * blockFrames);
    for (int i = 0; i < 3; ++i)
        benchmark::DoNotOptimize(processor.process(block, false));
    for (auto _ : state)
        benchmark::DoNotOptimize(processor.process(block, false));
    setCopyingNetwork(false);
}

void processorConstruction(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(makeProcessor(true));
}

BENCHMARK(chunkPlanar)->Unit(benchmark::kMillisecond)->MinWarmUpTime(0.5)->MinTime(2.0);
BENCHMARK(chunkInterleaved)->Unit(benchmark::kMillisecond)->MinWarmUpTime(0.5)->MinTime(2.0);
BENCHMARK(chunkOfOneStem)->Unit(benchmark::kMillisecond)->MinWarmUpTime(0.5)->MinTime(2.0);
BENCHMARK(chunkOfSignal)
    ->ArgName("signal")
    ->DenseRange(Ordinary, DecayingTail)
    ->Unit(benchmark::kMillisecond)
    ->MinWarmUpTime(0.2)
    ->MinTime(1.0);
BENCHMARK(processorConstruction)->Unit(benchmark::kMillisecond);

} // namespace
