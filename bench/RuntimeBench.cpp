// SPDX-License-Identifier: MIT
// What the library adds to the real runtime: when a model is loaded, and around each of its runs.
#include <array>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "Workload.h"
#include "inference/InferenceBackend.h"
#include "inference/OrtApi.h"
#include "inference/RuntimeLoader.h"

namespace
{

std::string readModel(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("There is no model " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

const std::string& gainModel()
{
    static const std::string bytes = readModel(std::string(TONWERK_BENCH_MODEL_DIR) + "/gains.onnx");
    return bytes;
}

/// The model that we ship, which takes longer to load.
const std::string& defaultModel()
{
    static const std::string bytes = readModel(TONWERK_BENCH_DEFAULT_MODEL);
    return bytes;
}

void bareSession(benchmark::State& state, const std::string& (*model)())
{
    openRuntimeLibrary();
    for (auto _ : state)
    {
        const Ort::Env env(ORT_LOGGING_LEVEL_WARNING, "");
        const Ort::Session session(env, model().data(), model().size(), Ort::SessionOptions());
        benchmark::DoNotOptimize(&session);
    }
}

void context(benchmark::State& state, const std::string& (*model)())
{
    for (auto _ : state)
    {
        const tonwerk::InferenceContext built({model().data(), model().size(), ""});
        benchmark::DoNotOptimize(&built);
    }
}

void chunkOnRuntime(benchmark::State& state)
{
    auto processor = makeProcessor(false, Selection::All, gainModel());
    warmUp(processor);
    const auto block = noise(channels * blockFrames);
    for (auto _ : state)
        benchmark::DoNotOptimize(processor.process(block, false).data());
}

void runOnRuntime(benchmark::State& state)
{
    const auto backend = makeInferenceBackend(gainModel().data(), gainModel().size(), {}, {}, "");
    setSelectedStems(backend, {true, true, true, true, true, true});
    const auto input = noise(outputFloats);
    std::vector<std::vector<float>> outputs(stems, std::vector<float>(outputFloats));
    std::vector<float*> pointers;
    for (auto& output : outputs)
        pointers.push_back(output.data());
    const std::array<std::int64_t, 4> shape{1, 2 * channels, segmentFrames, fftSize / 2};
    for (auto _ : state)
        if (!backend->run(input.data(), pointers, shape))
            state.SkipWithError("the run failed");
}

BENCHMARK_CAPTURE(bareSession, gains, gainModel)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(context, gains, gainModel)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(bareSession, default, defaultModel)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(context, default, defaultModel)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(chunkOnRuntime)->Unit(benchmark::kMillisecond)->UseRealTime()->MinWarmUpTime(0.5)->MinTime(3.0);
BENCHMARK(runOnRuntime)->Unit(benchmark::kMillisecond)->UseRealTime()->MinWarmUpTime(0.5)->MinTime(3.0);

} // namespace
