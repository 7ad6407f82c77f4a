// SPDX-License-Identifier: MIT
#include "inference/ModelSession.h"

#include <algorithm>
#include <exception>

#include "common/Log.h"
#include "inference/ExecutionProviders.h"

namespace
{

constexpr const char* functionName = "InferenceONNXImplMultiStem::InferenceONNXImplMultiStem";

void tryProvider(ModelSession& made, const Ort::Env& env, const std::string& name, const void* model,
                 std::size_t size)
{
    try
    {
        Ort::SessionOptions options;
        TONWERK_LOG_AS(functionName, info) << "[INFERENCE_onnx] Append execution provider: " << name;
        if (appendProvider(options, name))
        {
            made.session = std::make_unique<Ort::Session>(env, model, size, options);
            made.provider = name;
            return;
        }
        TONWERK_LOG_AS(functionName, warning) << "[INFERENCE_onnx] Unknown EP: " << name;
    }
    catch (const std::exception& failure)
    {
        TONWERK_LOG_AS(functionName, error) << "[INFERENCE_onnx] Failed to init backend: " << failure.what();
        made.refusals.push_back({name, failure.what()});
    }
}

} // namespace

// Every available provider gets a full session build and the last success stays: a machine that can run the
// model on CUDA shall do so even though DirectML comes first in the list.
ModelSession makeModelSession(const Ort::Env& env, const void* model, std::size_t size,
                              const std::string& providerName)
{
    const std::vector<std::string> available = Ort::GetAvailableProviders();
    for (const std::string& name : available)
        TONWERK_LOG_AS(functionName, info) << "[INFERENCE_onnx] Available Provider: " << name;

    ModelSession made;
    for (const std::string& name : providerPreference(providerName))
    {
        if (sameProvider(name, cpuProvider))
            break;
        if (std::any_of(available.begin(), available.end(),
                        [&](const std::string& offered) { return sameProvider(offered, name); }))
            tryProvider(made, env, name, model, size);
    }
    if (!made.session)
    {
        made.session = std::make_unique<Ort::Session>(env, model, size, Ort::SessionOptions());
        made.provider = cpuProvider;
    }
    return made;
}
