// SPDX-License-Identifier: MIT
#include "inference/ModelSession.h"

#include <algorithm>
#include <exception>
#include <string>
#include <thread>

#include "common/Log.h"
#include "inference/ExecutionProviders.h"
#include "inference/ExternalData.h"

namespace
{

constexpr const char* functionName = "InferenceONNXImplMultiStem::InferenceONNXImplMultiStem";

/// Each of the runtime's own threads on a processor of its own: they come after the caller's, which is free.
std::string affinities(unsigned threads)
{
    std::string text;
    for (unsigned processor = 2; processor <= threads; ++processor)
        text.append(text.empty() ? "" : ";").append(std::to_string(processor));
    return text;
}

/// The runtime pins its threads if it is left to choose their number, and only then.
Ort::SessionOptions makeOptions(const SessionChoices& choices)
{
    Ort::SessionOptions options;
    const unsigned processors = std::max(1U, std::thread::hardware_concurrency());
    if (choices.threads > 0 || !choices.pinThreads)
        options.SetIntraOpNumThreads(static_cast<int>(choices.threads > 0 ? choices.threads : processors));
    if (choices.threads > 1 && choices.threads <= processors && choices.pinThreads)
        options.AddConfigEntry("session.intra_op_thread_affinities", affinities(choices.threads).c_str());
    if (!choices.spinThreads)
        options.AddConfigEntry("session.intra_op.allow_spinning", "0");
    return options;
}

void tryProvider(ModelSession& made, const Ort::Env& env, const std::string& name, const void* model,
                 std::size_t size, const SessionChoices& choices)
{
    try
    {
        Ort::SessionOptions options = makeOptions(choices);
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

ModelSession makeOnlySession(const Ort::Env& env, const void* model, std::size_t size,
                             const SessionChoices& choices)
{
    const std::string refusal = providerRefusal(choices.provider);
    if (!refusal.empty())
        throw ProviderRefused(refusal);
    Ort::SessionOptions options = makeOptions(choices);
    if (!sameProvider(choices.provider, cpuProvider))
        appendProvider(options, choices.provider);
    return {std::make_unique<Ort::Session>(env, model, size, options), choices.provider, {}};
}

} // namespace

// Every available provider gets a full session build and the last success stays: a machine that can run the
// model on CUDA shall do so even though DirectML comes first in the list.
ModelSession makeModelSession(const Ort::Env& env, const void* model, std::size_t size,
                              const SessionChoices& choices)
{
    refuseExternalData(model, size);
    if (choices.onlyProvider)
        return makeOnlySession(env, model, size, choices);
    const std::vector<std::string> available = Ort::GetAvailableProviders();
    for (const std::string& name : available)
        TONWERK_LOG_AS(functionName, info) << "[INFERENCE_onnx] Available Provider: " << name;

    ModelSession made;
    for (const std::string& name : providerPreference(choices.provider))
    {
        if (sameProvider(name, cpuProvider))
            break;
        if (std::any_of(available.begin(), available.end(),
                        [&](const std::string& offered) { return sameProvider(offered, name); }))
            tryProvider(made, env, name, model, size, choices);
    }
    if (!made.session)
    {
        made.session = std::make_unique<Ort::Session>(env, model, size, makeOptions(choices));
        made.provider = cpuProvider;
    }
    return made;
}
