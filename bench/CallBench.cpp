// SPDX-License-Identifier: MIT
// A call that completes no chunk, against a plain copy of its block into the next place of a buffer as large
// as the library's.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "Workload.h"

namespace
{

constexpr std::size_t chunksFilled = 30;

/// The call that would complete a chunk is made, but not timed.
void callWithoutResult(benchmark::State& state)
{
    const auto frames = static_cast<std::size_t>(state.range(0));
    auto processor = makeProcessor(state.range(1) != 0);
    warmUp(processor);
    const auto block = noise(channels * frames);
    std::size_t buffered = fftSize;
    for (auto _ : state)
    {
        if (buffered + frames >= processor.maxInputSize())
        {
            state.PauseTiming();
            benchmark::DoNotOptimize(processor.process(block, false));
            buffered += frames;
            buffered +=
                fftSize - std::min(buffered, longestLaterChunk); // the newest are kept for the next chunk
            state.ResumeTiming();
        }
        const auto result = processor.process(block, false);
        if (!result.empty())
            state.SkipWithError("a call gave a result");
        buffered += frames;
    }
}

/// As often as a chunk would be complete, other memory is written, as a chunk does it: both find the place of
/// their next samples outside of the cache.
void copyOfBlock(benchmark::State& state)
{
    const auto frames = static_cast<std::size_t>(state.range(0));
    const auto block = noise(channels * frames);
    std::vector<float> buffer(channels * capacity);
    std::vector<float> elsewhere(stems * outputFloats);
    std::size_t place = 0;
    std::size_t sinceChunk = 0;
    for (auto _ : state)
    {
        if (sinceChunk + frames > blockFrames)
        {
            state.PauseTiming();
            std::fill(elsewhere.begin(), elsewhere.end(), 0.5F);
            benchmark::ClobberMemory();
            sinceChunk = 0;
            state.ResumeTiming();
        }
        if (place + block.size() > buffer.size())
            place = 0;
        std::copy(block.begin(), block.end(), buffer.begin() + static_cast<std::ptrdiff_t>(place));
        benchmark::ClobberMemory();
        place += block.size();
        sinceChunk += frames;
    }
}

void registerCalls(std::size_t frames)
{
    const auto size = static_cast<std::int64_t>(frames);
    const auto calls = static_cast<std::int64_t>(chunksFilled * blockFrames / frames);
    for (const std::int64_t interleaved : {0, 1})
        benchmark::RegisterBenchmark("callWithoutResult", callWithoutResult)
            ->ArgNames({"frames", "interleaved"})
            ->Args({size, interleaved})
            ->UseRealTime() // clocks of processor time are too coarse on some systems
            ->Iterations(calls);
    benchmark::RegisterBenchmark("copyOfBlock", copyOfBlock)
        ->ArgName("frames")
        ->Arg(size)
        ->UseRealTime()
        ->Iterations(calls);
}

[[maybe_unused]] const bool registered = []
{
    for (const std::size_t frames : {64U, 512U, 4096U, 44100U})
        registerCalls(frames);
    return true;
}();

} // namespace
