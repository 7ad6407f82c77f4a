// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "common/Log.h"
#include "inference/ExecutionProviders.h"
#include "inference/InferenceBackend.h"
#include "inference/ModelCache.h"
#include "inference/ModelContract.h"
#include "inference/ModelInterface.h"
#include "inference/ModelSession.h"
#include "inference/OrtApi.h"
#include "inference/RuntimeLoader.h"

/// The network on ONNX Runtime. Holds one session for all its users and no lock.
///
/// As an IInference it goes on after a failed evaluation and has one selection of stems, as an ISharedModel
/// it reports and is told run by run.
class InferenceONNXImplMultiStem : public IInference, public ISharedModel
{
public:
    InferenceONNXImplMultiStem(Ort::Env environment, const void* model, std::size_t size,
                               const std::vector<std::string>& inputNames,
                               const std::vector<std::string>& outputNames, const SessionChoices& choices);

    bool run(const float* input, std::vector<float*> outputs,
             const std::array<std::int64_t, 4>& shape) override;

    void evaluate(const float* input, const std::vector<float*>& outputs,
                  const std::array<std::int64_t, 4>& shape, StemFlags flags,
                  const IRunSwitch& runSwitch) override;
    std::unique_ptr<IRunSwitch> makeRunSwitch() const override;
    const ModelFacts& facts() const override { return modelFacts; }

    void selectStems(StemFlags flags);
    StemFlags selectedStems() const;

    /// Finds out what facts() tells.
    /// \throws std::runtime_error with a sentence if the network's interface is not the contract's
    void examine();

private:
    void readInterface(const std::vector<std::string>& givenInputs,
                       const std::vector<std::string>& givenOutputs);
    static std::vector<Ort::Value> bindInputs(const Ort::MemoryInfo& memory, const float* input,
                                              std::size_t count, const std::array<std::int64_t, 4>& shape,
                                              StemFlagArray& flags);
    std::vector<Ort::Value> bindOutputs(const Ort::MemoryInfo& memory, const std::vector<float*>& outputs,
                                        std::size_t count) const;
    void runSession(const Ort::RunOptions& options, const std::vector<Ort::Value>& inputs,
                    std::vector<Ort::Value>& results);
    void silenceOthers(const std::vector<float*>& outputs, std::size_t count,
                       const StemFlagArray& flags) const;

    Ort::Env env;
    std::unique_ptr<Ort::Session> session;
    std::vector<std::string> inputNames;
    std::vector<std::string> outputNames;
    std::vector<std::int64_t> inputShape;
    std::vector<std::int64_t> outputShape;
    StemFlagArray selected; // its bytes are the network's inputs
    ModelFacts modelFacts;
};

namespace
{

class RunSwitch : public IRunSwitch
{
public:
    void stop() override { options.SetTerminate(); }
    void allow() override { options.UnsetTerminate(); }

    Ort::RunOptions options;
};

/// The runtime's own lines become lines of our log.
void ORT_API_CALL logRuntimeLine(void* /*unused*/, OrtLoggingLevel level, const char* /*category*/,
                                 const char* /*session*/, const char* /*place*/, const char* text)
{
    constexpr const char* runtimeName = "onnxruntime";
    if (level >= ORT_LOGGING_LEVEL_ERROR)
    {
        TONWERK_LOG_AS(runtimeName, error) << text;
    }
    else
    {
        TONWERK_LOG_AS(runtimeName, warning) << text;
    }
}

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

InferenceONNXImplMultiStem::InferenceONNXImplMultiStem(Ort::Env environment, const void* model,
                                                       std::size_t size,
                                                       const std::vector<std::string>& inputNames,
                                                       const std::vector<std::string>& outputNames,
                                                       const SessionChoices& choices)
    : env(std::move(environment)), selected{}
{
    TONWERK_LOG(info) << "[INFERENCE_onnx] Create Inference ONNX";
    try
    {
        ModelSession made = makeModelSession(env, model, size, choices);
        session = std::move(made.session);
        modelFacts.provider = std::move(made.provider);
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

void InferenceONNXImplMultiStem::examine()
{
    const InterfaceFaults faults = checkInterface(*session);
    if (!faults.violations.empty())
        throw std::runtime_error(faults.violations.front());
    // DirectML leaves a session to the CPU without a word.
    if (sameProvider(modelFacts.provider, directMLProvider) && !providerRefusal(directMLProvider).empty())
        modelFacts.provider = cpuProvider;
    const Ort::AllocatorWithDefaultOptions allocator;
    const Ort::ModelMetadata metadata = session->GetModelMetadata();
    for (const auto& key : metadata.GetCustomMetadataMapKeysAllocated(allocator))
        modelFacts.metadata[key.get()] =
            metadata.LookupCustomMetadataMapAllocated(key.get(), allocator).get();
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
    const auto inputs = bindInputs(memory, input, count, shape, selected);
    auto results = bindOutputs(memory, outputs, count);
    const Ort::RunOptions options;
    try
    {
        runSession(options, inputs, results);
    }
    catch (const std::exception& failure)
    {
        TONWERK_LOG(error) << "[INFERENCE_onnx] Exception during inference: " << failure.what();
    }
    silenceOthers(outputs, count, selected);
    return true;
}

void InferenceONNXImplMultiStem::evaluate(const float* input, const std::vector<float*>& outputs,
                                          const std::array<std::int64_t, 4>& shape, StemFlags flags,
                                          const IRunSwitch& runSwitch)
{
    const std::size_t count = elementCount(shape);
    auto chosen = std::bit_cast<StemFlagArray>(flags);
    const auto memory = Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeCPU);
    const auto inputs = bindInputs(memory, input, count, shape, chosen);
    auto results = bindOutputs(memory, outputs, count);
    runSession(dynamic_cast<const RunSwitch&>(runSwitch).options, inputs, results);
    silenceOthers(outputs, count, chosen);
}

std::unique_ptr<IRunSwitch> InferenceONNXImplMultiStem::makeRunSwitch() const
{
    return std::make_unique<RunSwitch>();
}

// The flags are read during the run.
std::vector<Ort::Value> InferenceONNXImplMultiStem::bindInputs(const Ort::MemoryInfo& memory,
                                                               const float* input, std::size_t count,
                                                               const std::array<std::int64_t, 4>& shape,
                                                               StemFlagArray& flags)
{
    static constexpr std::array<std::int64_t, 1> flagShape{1};
    std::vector<Ort::Value> values;
    values.reserve(contractInputs.size());
    // The runtime takes inputs through pointers to non-const and does not write to them.
    values.push_back(Ort::Value::CreateTensor<float>(memory, const_cast<float*>(input), count, shape.data(),
                                                     shape.size()));
    for (bool& flag : flags)
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

void InferenceONNXImplMultiStem::runSession(const Ort::RunOptions& options,
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

void InferenceONNXImplMultiStem::silenceOthers(const std::vector<float*>& outputs, std::size_t count,
                                               const StemFlagArray& flags) const
{
    for (std::size_t i = 0; i < std::min(outputs.size(), outputNames.size()); ++i)
    {
        const auto* found = std::find(contractOutputs.begin(), contractOutputs.end(), outputNames[i]);
        if (found == contractOutputs.end() ||
            !flags[static_cast<std::size_t>(found - contractOutputs.begin())])
            std::fill_n(outputs[i], count, 0.0F);
    }
}

std::shared_ptr<IInference> makeInferenceBackend(const void* model, std::size_t size,
                                                 const std::vector<std::string>& inputNames,
                                                 const std::vector<std::string>& outputNames,
                                                 const std::string& providerName)
{
    openRuntimeLibrary();
    SessionChoices choices;
    choices.provider = providerName;
    return std::make_shared<InferenceONNXImplMultiStem>(Ort::Env(ORT_LOGGING_LEVEL_WARNING, ""), model, size,
                                                        inputNames, outputNames, choices);
}

std::shared_ptr<ISharedModel> makeSharedModel(const void* model, std::size_t size,
                                              const std::vector<std::string>& outputNames,
                                              const SessionChoices& choices)
{
    openRuntimeLibrary();
    auto made = std::make_shared<InferenceONNXImplMultiStem>(
        Ort::Env(ORT_LOGGING_LEVEL_WARNING, "", logRuntimeLine, nullptr), model, size,
        std::vector<std::string>{}, outputNames, choices);
    made->examine();
    return made;
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
