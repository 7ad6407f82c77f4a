// SPDX-License-Identifier: MIT
// The parts of a steady-state chunk one by one, on buffers of their real size. "MB" is what a part reads and
// writes beyond the processor's first cache, each value once.
#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include <benchmark/benchmark.h>

#include "Workload.h"
#include "api/SampleLayout.h"
#include "inference/InferenceBackend.h"
#include "pipeline/BufferAggregator.h"
#include "pipeline/OverlapAddSynthesizer.h"
#include "spectral/PFFFTTransformer.h"
#include "spectral/PreProcessor.h"
#include "spectral/StemSpectra.h"
#include "spectral/WindowFunctions.h"

namespace
{

constexpr std::size_t chunkFrames = blockFrames + fftSize;
constexpr std::size_t forwardRows = channels * newFrames;
constexpr std::size_t inverseRows = stems * channels * newFrames;
constexpr std::size_t planesOfRow = fftSize; // a row's share of the planes, real and imaginary

void moved(benchmark::State& state, std::size_t floats)
{
    state.counters["MB"] = static_cast<double>(floats * sizeof(float)) / 1e6;
}

std::vector<float> window()
{
    return makeWindow(WindowType::Blackman, static_cast<std::int32_t>(fftSize));
}

std::vector<FixedArray<3>> modelOutputs()
{
    const FixedArray<3> output = xt::zeros<float>({2 * channels, segmentFrames, fftSize / 2});
    return {stems, output};
}

void stageBuffer(benchmark::State& state)
{
    const auto samples = noise(channels * blockFrames);
    const bool interleaved = state.range(0) != 0;
    const SampleBlock block{samples.data(), channels, blockFrames, interleaved ? 1 : blockFrames,
                            interleaved ? channels : 1};
    BufferAggregator buffer(channels, 2 * blockFrames, 1);
    buffer.push(SampleBlock{samples.data(), channels, fftSize, fftSize, 1});
    std::vector<float> chunk(channels * chunkFrames);
    for (auto _ : state)
    {
        buffer.push(block);
        buffer.take(chunkFrames, fftSize, chunk.data(), chunkFrames);
        benchmark::ClobberMemory();
    }
    moved(state, 2 * channels * (blockFrames + chunkFrames));
}

/// Without the planes, which are the next stage's difference to this one.
void stageWindowForward(benchmark::State& state)
{
    PFFFTTransformer fft(fftSize, false);
    const auto shape = window();
    const auto samples = noise(channels * chunkFrames);
    for (auto _ : state)
        for (std::size_t row = 0; row < forwardRows; ++row)
        {
            float* windowed = fft.inputRow().data();
            const float* source = samples.data() + row * hop / channels;
            for (std::size_t i = 0; i < fftSize; ++i)
                windowed[i] = source[i] * shape[i];
            benchmark::DoNotOptimize(fft.forwardRow().data());
        }
    moved(state, channels * chunkFrames);
}

void stageAnalysis(benchmark::State& state)
{
    const auto network = makeInferenceBackend(nullptr, 0, {}, {}, "");
    setSelectedStems(network, {true, true, true, true, true, true});
    PreProcessor analysis(channels, fftSize, hop, window(), network, segmentFrames, true, stems);
    const auto samples = noise(channels * chunkFrames);
    const SampleRows chunk{samples.data() + hop, channels, chunkFrames - hop, chunkFrames};
    for (auto _ : state)
        if (analysis.process(chunk, false).frameCount() == 0)
            state.SkipWithError("no frames");
    moved(state, channels * chunkFrames + forwardRows * planesOfRow);
}

void stageUnpack(benchmark::State& state)
{
    const auto outputs = modelOutputs();
    const StemSpectra spectra(outputs, segmentFrames - newFrames - 1, segmentFrames - 1);
    std::vector<float> row(fftSize);
    for (auto _ : state)
        for (std::size_t stem = 0; stem < stems; ++stem)
            for (std::size_t frame = 0; frame < newFrames; ++frame)
                for (std::size_t channel = 0; channel < channels; ++channel)
                {
                    spectra.packFrame(stem, channel, frame, row);
                    benchmark::DoNotOptimize(row.data());
                }
    moved(state, inverseRows * planesOfRow);
}

void stageInverseOverlapAdd(benchmark::State& state)
{
    std::vector<std::unique_ptr<OverlapAddSynthesizer>> synthesizers;
    const auto spectrum = noise(fftSize);
    for (std::size_t stem = 0; stem < stems; ++stem)
    {
        synthesizers.push_back(std::make_unique<OverlapAddSynthesizer>(channels, fftSize, hop, window()));
        std::copy(spectrum.begin(), spectrum.end(), synthesizers.back()->inputRow().begin());
    }
    std::vector<float> result(stems * channels * blockFrames);
    for (auto _ : state)
        for (std::size_t stem = 0; stem < stems; ++stem)
            for (std::size_t frame = 0; frame < newFrames; ++frame)
            {
                for (std::size_t channel = 0; channel < channels; ++channel)
                    synthesizers[stem]->addRow(channel);
                synthesizers[stem]->completeHop(result.data() + stem * channels * blockFrames + frame * hop,
                                                blockFrames);
            }
    moved(state, result.size());
}

void stageHostVectors(benchmark::State& state)
{
    const auto result = noise((stems + 1) * channels * blockFrames);
    for (auto _ : state)
    {
        std::vector<std::vector<float>> vectors;
        for (std::size_t stem = 0; stem <= stems; ++stem)
        {
            const float* left = result.data() + stem * channels * blockFrames;
            vectors.emplace_back().reserve(channels * blockFrames);
            tonwerk::appendHostSamples(left, left + blockFrames, blockFrames, state.range(0) != 0,
                                       vectors.back());
        }
        benchmark::DoNotOptimize(vectors.data());
    }
    moved(state, 2 * result.size());
}

/// What the system takes for fresh memory of the size of the returned vectors, which a host keeps or gives
/// back.
void freshVectors(benchmark::State& state)
{
    const std::size_t floatsPerPage = 4096 / sizeof(float);
    for (auto _ : state)
    {
        std::vector<std::unique_ptr<float[]>> vectors;
        for (std::size_t i = 0; i < stems + 2; ++i)
        {
            vectors.push_back(std::make_unique_for_overwrite<float[]>(channels * blockFrames));
            for (std::size_t k = 0; k < channels * blockFrames; k += floatsPerPage)
                vectors.back()[k] = 0.25F;
        }
        benchmark::DoNotOptimize(vectors.data());
        benchmark::ClobberMemory();
    }
}

void stageResidualMix(benchmark::State& state)
{
    const std::vector<std::vector<float>> six(stems, noise(channels * blockFrames));
    std::array<const float*, stems> first{};
    std::transform(six.begin(), six.end(), first.begin(), [](const auto& stem) { return stem.data(); });
    std::vector<float> mixture = six[0];
    for (auto _ : state)
    {
        std::vector<float> sum(mixture.size());
        tonwerk::sumAndSubtract(first, mixture.size(), mixture.data(), sum.data());
        benchmark::DoNotOptimize(sum.data());
    }
    moved(state, (stems + 3) * mixture.size());
}

BENCHMARK(stageBuffer)->ArgName("interleaved")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(stageWindowForward)->Unit(benchmark::kMillisecond);
BENCHMARK(stageAnalysis)->Unit(benchmark::kMillisecond);
BENCHMARK(stageUnpack)->Unit(benchmark::kMillisecond);
BENCHMARK(stageInverseOverlapAdd)->Unit(benchmark::kMillisecond);
BENCHMARK(stageHostVectors)->ArgName("interleaved")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(stageResidualMix)->Unit(benchmark::kMillisecond);
BENCHMARK(freshVectors)->Unit(benchmark::kMillisecond);

} // namespace
