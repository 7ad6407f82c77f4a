// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <numeric>

#include "common/Log.h"
#include "inference/InferenceBackend.h"
#include "inference/ModelCache.h"
#include "inference/ModelContract.h"
#include "inference/ModelSession.h"
#include "inference/OrtApi.h"
#include "inference/RuntimeLoader.h"

/// The network on ONNX Runtime. Holds one session for all its users and no lock.
class InferenceONNXImplMultiStem : public IInference
{
public:
    InferenceONNXImplMultiStem(const void* model, std::size_t size,
                               const std::vector<std::string>& inputNames,
                               const std::vector<std::string>& outputNames, const std::string& providerName);

    bool run(const float* input, std::vector<float*> outputs,
             const std::array<std::int64_t, 4>& shape) override;

    void selectStems(StemFlags flags);
    StemFlags selectedStems() const;

private:
    void readInterface(const std::vector<std::string>& givenInputs,
                       const std::vector<std::string>& givenOutputs);
    std::vector<Ort::Value> bindInputs(const Ort::MemoryInfo& memory, const float* input, std::size_t count,
                                       const std::array<std::int64_t, 4>& shape);
    std::vector<Ort::Value> bindOutputs(const Ort::MemoryInfo& memory, const std::vector<float*>& outputs,
                                        std::size_t count) const;
    void evaluate(const Ort::RunOptions& options, const std::vector<Ort::Value>& inputs,
                  std::vector<Ort::Value>& results);
    bool isSelected(const std::string& outputName) const;

    Ort::Env env;
    std::unique_ptr<Ort::Session> session;
    std::vector<std::string> inputNames;
    std::vector<std::string> outputNames;
    std::vector<std::int64_t> inputShape;
    std::vector<std::int64_t> outputShape;
    StemFlagArray selected; // its bytes are the network's inputs
};

namespace
{

std::vector<std::string> ownInputNames(const Ort::Session& session)
{
    const Ort::AllocatorWithDefaultOptions allocator;
    std::vector<std::string> names;
    for (std::size_t i = 0; i < session.GetInputCount(); ++i)
        names.emplace_back(session.GetInputNameAllocated(i, allocator).get());
    return names;
}

std::vector<std::string> ownOutputNames(const Ort::Session& session)
{
    const Ort::AllocatorWithDefaultOptions allocator;
    std::vector<std::string> names;
    for (std::size_t i = 0; i < session.GetOutputCount(); ++i)
        names.emplace_back(session.GetOutputNameAllocated(i, allocator).get());
    return names;
}

std::size_t elementCount(const std::array<std::int64_t, 4>& shape)
{
    return static_cast<std::size_t>(
        std::accumulate(shape.begin(), shape.end(), std::int64_t{1}, std::multiplies<>()));
}

/// Empty if the value is no tensor; the runtime has no shape to give then.
std::vector<std::int64_t> tensorShape(const Ort::TypeInfo& type)
{
    if (type.GetONNXType() != ONNX_TYPE_TENSOR)
        return {};
    return type.GetTensorTypeAndShapeInfo().GetShape();
}

} // namespace

InferenceONNXImplMultiStem::InferenceONNXImplMultiStem(const void* model, std::size_t size,
                                                       const std::vector<std::string>& inputNames,
                                                       const std::vector<std::string>& outputNames,
                                                       const std::string& providerName)
    : env(ORT_LOGGING_LEVEL_WARNING, ""), selected{}
{
    TONWERK_LOG(info) << "[INFERENCE_onnx] Create Inference ONNX";
    try
    {
        session = makeModelSession(env, model, size, providerName).session;
    }
    catch (const std::exception& failure)
    {
        TONWERK_LOG(error) << "[INFERENCE_onnx] Failed to initialize ONNX session: " << failure.what();
        throw;
    }
    const std::filesystem::path coreMLCache; // no provider of this build keeps compiled models
    removeModelCache(coreMLCache);
    readInterface(inputNames, outputNames);
}

void InferenceONNXImplMultiStem::readInterface(const std::vector<std::string>& givenInputs,
                                               const std::vector<std::string>& givenOutputs)
{
    inputNames = givenInputs.empty() ? ownInputNames(*session) : givenInputs;
    outputNames = givenOutputs.empty() ? ownOutputNames(*session) : givenOutputs;
    inputShape = tensorShape(session->GetInputTypeInfo(0));
    outputShape = tensorShape(session->GetOutputTypeInfo(0));
}

void InferenceONNXImplMultiStem::selectStems(StemFlags flags)
{
    selected = std::bit_cast<StemFlagArray>(flags);
}

StemFlags InferenceONNXImplMultiStem::selectedStems() const
{
    return std::bit_cast<StemFlags>(selected);
}

bool InferenceONNXImplMultiStem::run(const float* input, std::vector<float*> outputs,
                                     const std::array<std::int64_t, 4>& shape)
{
    const std::size_t count = elementCount(shape);
    const auto memory = Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeCPU);
    const auto inputs = bindInputs(memory, input, count, shape);
    auto results = bindOutputs(memory, outputs, count);
    const Ort::RunOptions options;
    try
    {
        evaluate(options, inputs, results);
    }
    catch (const std::exception& failure)
    {
        TONWERK_LOG(error) << "[INFERENCE_onnx] Exception during inference: " << failure.what();
    }
    for (std::size_t i = 0; i < results.size(); ++i)
        if (!isSelected(outputNames[i]))
            std::fill_n(outputs[i], count, 0.0F);
    return true;
}

std::vector<Ort::Value> InferenceONNXImplMultiStem::bindInputs(const Ort::MemoryInfo& memory,
                                                               const float* input, std::size_t count,
                                                               const std::array<std::int64_t, 4>& shape)
{
    static constexpr std::array<std::int64_t, 1> flagShape{1};
    std::vector<Ort::Value> values;
    values.reserve(contractInputs.size());
    // The runtime takes inputs through pointers to non-const and does not write to them.
    values.push_back(Ort::Value::CreateTensor<float>(memory, const_cast<float*>(input), count, shape.data(),
                                                     shape.size()));
    for (bool& flag : selected)
        values.push_back(
            Ort::Value::CreateTensor<bool>(memory, &flag, 1, flagShape.data(), flagShape.size()));
    return values;
}

// Every output is bound with the shape of the model's first output: the contract gives all of them the same.
std::vector<Ort::Value> InferenceONNXImplMultiStem::bindOutputs(const Ort::MemoryInfo& memory,
                                                                const std::vector<float*>& outputs,
                                                                std::size_t count) const
{
    std::vector<Ort::Value> values;
    values.reserve(outputNames.size());
    for (std::size_t i = 0; i < std::min(outputs.size(), outputNames.size()); ++i)
        values.push_back(Ort::Value::CreateTensor<float>(memory, outputs[i], count, outputShape.data(),
                                                         outputShape.size()));
    return values;
}

void InferenceONNXImplMultiStem::evaluate(const Ort::RunOptions& options,
                                          const std::vector<Ort::Value>& inputs,
                                          std::vector<Ort::Value>& results)
{
    std::vector<const char*> names;
    names.reserve(outputNames.size());
    for (const std::string& name : outputNames)
        names.push_back(name.c_str());
    session->Run(options, contractInputs.data(), inputs.data(), inputs.size(), names.data(), results.data(),
                 results.size());
}

bool InferenceONNXImplMultiStem::isSelected(const std::string& outputName) const
{
    const auto* found = std::find(contractOutputs.begin(), contractOutputs.end(), outputName);
    return found != contractOutputs.end() &&
           selected[static_cast<std::size_t>(found - contractOutputs.begin())];
}

std::shared_ptr<IInference> makeInferenceBackend(const void* model, std::size_t size,
                                                 const std::vector<std::string>& inputNames,
                                                 const std::vector<std::string>& outputNames,
                                                 const std::string& providerName)
{
    openRuntimeLibrary();
    return std::make_shared<InferenceONNXImplMultiStem>(model, size, inputNames, outputNames, providerName);
}

void setSelectedStems(const std::shared_ptr<IInference>& backend, StemFlags flags)
{
    if (auto* implementation = dynamic_cast<InferenceONNXImplMultiStem*>(backend.get()))
        implementation->selectStems(flags);
}

StemFlags selectedStems(const std::shared_ptr<IInference>& backend)
{
    if (const auto* implementation = dynamic_cast<InferenceONNXImplMultiStem*>(backend.get()))
        return implementation->selectedStems();
    return {true, true, true, true, true, true};
}
