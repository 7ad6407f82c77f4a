// SPDX-License-Identifier: MIT
// What one steady-state chunk costs whoever computes it on this FFT: its transforms on warm buffers, and one
// copy of everything that has to be read or written.
#include <algorithm>
#include <cstddef>
#include <vector>

#include <benchmark/benchmark.h>

#include "Workload.h"
#include "spectral/PFFFTTransformer.h"

namespace
{

/// A buffer and where it is copied to.
struct Copy
{
    explicit Copy(std::size_t count) : source(count, 0.25F), target(count) {}

    void run()
    {
        std::copy(source.begin(), source.end(), target.begin());
        benchmark::DoNotOptimize(target.data());
    }

    std::vector<float> source;
    std::vector<float> target;
};

void floorOfOneChunk(benchmark::State& state)
{
    PFFFTTransformer fft(fftSize, false);
    const auto signal = noise(fftSize);
    std::copy(signal.begin(), signal.end(), fft.inputRow().begin());
    std::vector<Copy> copies;
    copies.emplace_back(channels * blockFrames); // the block
    for (std::size_t i = 0; i < stems; ++i)
        copies.emplace_back(outputFloats);                     // the model's outputs
    copies.emplace_back((stems + 1) * channels * blockFrames); // the stems and the mixture
    for (std::size_t i = 0; i < stems + 2; ++i)
        copies.emplace_back(channels * blockFrames); // the vectors that the host gets
    for (auto _ : state)
    {
        for (std::size_t i = 0; i < channels * newFrames; ++i)
            benchmark::DoNotOptimize(fft.forwardRow().data());
        for (std::size_t i = 0; i < stems * channels * newFrames; ++i)
            benchmark::DoNotOptimize(fft.inverseRow().data());
        for (Copy& copy : copies)
            copy.run();
    }
}

BENCHMARK(floorOfOneChunk)->Unit(benchmark::kMillisecond)->MinWarmUpTime(0.5)->MinTime(2.0);

} // namespace
