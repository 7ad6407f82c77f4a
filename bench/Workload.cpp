// SPDX-License-Identifier: MIT
#include "Workload.h"

#include <algorithm>
#include <memory>
#include <random>

std::vector<float> noise(std::size_t count)
{
    std::mt19937 generator(1);
    std::uniform_real_distribution<float> amplitude(-0.5F, 0.5F);
    std::vector<float> samples(count);
    std::generate(samples.begin(), samples.end(), [&] { return amplitude(generator); });
    return samples;
}

tonwerk::TonwerkProc makeProcessor(bool interleaved, Selection selection, const std::string& model)
{
    tonwerk::TonwerkProcConfig config{};
    config.vocals = 1;
    if (selection == Selection::All)
        config.drum = config.piano = config.acousticGuitar = config.electricGuitar = config.bass = 1;
    config.interleaved = interleaved;
    const tonwerk::ModelData data{model.data(), model.size(), ""};
    return {std::make_shared<tonwerk::InferenceContext>(data), config};
}

void warmUp(tonwerk::TonwerkProc& processor)
{
    processor.process(noise(channels * static_cast<std::size_t>(processor.maxInputSize())), false);
    processor.process(noise(channels * blockFrames), false);
}
