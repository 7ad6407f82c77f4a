// SPDX-License-Identifier: MIT
#include "tools/NetworkRunner.h"

#include <chrono>

#include "inference/ModelInterface.h"

namespace tonwerk::app
{

NetworkRunner::NetworkRunner(Ort::Session& session)
    : session(session), outputShape(session.GetOutputTypeInfo(0).GetTensorTypeAndShapeInfo().GetShape())
{
    for (std::vector<float>& output : outputs)
        output.resize(spectrogramShape[0] * spectrogramShape[1] * spectrogramShape[2] * spectrogramShape[3]);
}

double NetworkRunner::run(const std::vector<float>& input, Flags flags)
{
    const auto memory = Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeCPU);
    constexpr std::array<std::int64_t, 1> flagShape{1};
    std::vector<Ort::Value> inputs;
    // The runtime takes inputs through pointers to non-const and does not write to them.
    inputs.push_back(Ort::Value::CreateTensor<float>(memory, const_cast<float*>(input.data()), input.size(),
                                                     spectrogramShape.data(), spectrogramShape.size()));
    for (bool& flag : flags)
        inputs.push_back(
            Ort::Value::CreateTensor<bool>(memory, &flag, 1, flagShape.data(), flagShape.size()));
    std::vector<Ort::Value> results;
    for (std::vector<float>& output : outputs)
        results.push_back(Ort::Value::CreateTensor<float>(memory, output.data(), output.size(),
                                                          outputShape.data(), outputShape.size()));
    const auto start = std::chrono::steady_clock::now();
    session.Run(Ort::RunOptions(), contractInputs.data(), inputs.data(), inputs.size(),
                contractOutputs.data(), results.data(), results.size());
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace tonwerk::app
