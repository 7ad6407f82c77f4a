// What the pipeline around the network costs, next to what its transforms and the copy of its input and
// output cost by themselves.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "BenchBackend.h"
#include "spectral/PFFFTTransformer.h"
#include "tonwerk/TonwerkProc.h"

namespace
{

constexpr std::size_t fftSize = 4096;
constexpr std::size_t channels = 2;
constexpr std::size_t stems = 6;
constexpr std::size_t blockFrames = 254976; // a steady-state block
constexpr std::size_t newFrames = blockFrames / 1024;

std::vector<float> noise(std::size_t count)
{
    std::mt19937 generator(1);
    std::uniform_real_distribution<float> amplitude(-0.5F, 0.5F);
    std::vector<float> samples(count);
    std::generate(samples.begin(), samples.end(), [&] { return amplitude(generator); });
    return samples;
}

tonwerk::TonwerkProc makeProcessor(bool interleaved)
{
    tonwerk::TonwerkProcConfig config{};
    config.vocals = config.drum = config.piano = config.acousticGuitar = config.electricGuitar = config.bass =
        1;
    config.interleaved = interleaved;
    return {std::make_shared<tonwerk::InferenceContext>(tonwerk::ModelData{nullptr, 0, ""}), config};
}

/// The transforms of one steady-state chunk on warm buffers, and one copy of its input and of its eight
/// stems: no implementation on this FFT can be faster.
void floorOfOneChunk(benchmark::State& state)
{
    PFFFTTransformer fft(fftSize, false);
    const auto input = noise(channels * blockFrames);
    std::vector<float> copiedInput(input.size());
    std::vector<std::vector<float>> outputs(stems + 2, input);
    std::vector<std::vector<float>> copiedOutputs = outputs;
    std::copy_n(input.begin(), fftSize, fft.inputRow().begin());
    for (auto _ : state)
    {
        for (std::size_t i = 0; i < channels * newFrames; ++i)
            benchmark::DoNotOptimize(fft.forwardRow().data());
        for (std::size_t i = 0; i < stems * channels * newFrames; ++i)
            benchmark::DoNotOptimize(fft.inverseRow().data());
        std::copy(input.begin(), input.end(), copiedInput.begin());
        benchmark::DoNotOptimize(copiedInput.data());
        for (std::size_t i = 0; i < outputs.size(); ++i)
        {
            std::copy(outputs[i].begin(), outputs[i].end(), copiedOutputs[i].begin());
            benchmark::DoNotOptimize(copiedOutputs[i].data());
        }
    }
}

void steadyStateChunk(benchmark::State& state)
{
    auto processor = makeProcessor(state.range(0) != 0);
    const auto first = noise(channels * static_cast<std::size_t>(processor.maxInputSize()));
    const auto block = noise(channels * blockFrames);
    benchmark::DoNotOptimize(processor.process(first, false));
    benchmark::DoNotOptimize(processor.process(block, false));
    for (auto _ : state)
    {
        const auto result = processor.process(block, false);
        if (result.size() != stems + 2 || result[0].size() != block.size())
            state.SkipWithError("a steady-state block did not give a whole result");
    }
}

enum Signal
{
    ordinary,
    silence,
    decayingTail // from 1e-37 to 1e-45: most values are denormal in the signal, and more in its spectra
};

std::vector<float> signalOf(Signal kind, std::size_t count)
{
    auto samples = noise(count);
    for (std::size_t i = 0; i < count; ++i)
        if (kind == silence)
            samples[i] = 0.0F;
        else if (kind == decayingTail)
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

BENCHMARK(floorOfOneChunk)->Unit(benchmark::kMillisecond)->MinWarmUpTime(0.5)->MinTime(2.0);
BENCHMARK(steadyStateChunk)
    ->ArgName("interleaved")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->MinWarmUpTime(0.5)
    ->MinTime(2.0);
BENCHMARK(chunkOfSignal)
    ->ArgName("signal")
    ->DenseRange(ordinary, decayingTail)
    ->Unit(benchmark::kMillisecond)
    ->MinWarmUpTime(0.2)
    ->MinTime(1.0);

} // namespace
