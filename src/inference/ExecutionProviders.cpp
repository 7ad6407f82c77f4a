// SPDX-License-Identifier: MIT
#include "inference/ExecutionProviders.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <stdexcept>

#include "inference/RuntimeLoader.h"

namespace
{

/// The head of the runtime's DirectML function table, all that is used of it. The runtime's own declaration
/// needs Direct3D headers.
struct DmlApi
{
    OrtStatusPtr(ORT_API_CALL* appendExecutionProvider)(OrtSessionOptions* options, int deviceIndex);
};

char asciiLower(char letter)
{
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// \return how the runtime answered, which the session does not depend on
Ort::Status appendDirectML(Ort::SessionOptions& options, IAdapterList& adapters)
{
    options.SetExecutionMode(ORT_SEQUENTIAL);
    options.DisableMemPattern();
    const void* table = nullptr;
    Ort::Status found(Ort::GetApi().GetExecutionProviderApi("DML", ORT_API_VERSION, &table));
    const std::int32_t deviceIndex = selectDmlAdapterIndex(adapters);
    if (table == nullptr)
        return found;
    return Ort::Status(static_cast<const DmlApi*>(table)->appendExecutionProvider(options, deviceIndex));
}

} // namespace

std::deque<std::string> providerPreference(const std::string& preferred)
{
    std::deque<std::string> names{directMLProvider,        "QNNExecutionProvider",    "CUDAExecutionProvider",
                                  "ROCmExecutionProvider", "CoreMLExecutionProvider", cpuProvider};
    if (!preferred.empty())
    {
        std::erase_if(names, [&](const std::string& name) { return sameProvider(name, preferred); });
        names.push_front(preferred);
    }
    return names;
}

bool sameProvider(const std::string& left, const std::string& right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return asciiLower(a) == asciiLower(b); });
}

bool appendProvider(Ort::SessionOptions& options, const std::string& provider)
{
    return appendProvider(options, provider, *systemAdapters());
}

bool appendProvider(Ort::SessionOptions& options, const std::string& provider, IAdapterList& adapters)
{
    if (sameProvider(provider, directMLProvider))
        appendDirectML(options, adapters); // its answer is deliberately not tested
    else if (!librariesHaveFixedPlaces() && (sameProvider(provider, "CUDAExecutionProvider") ||
                                             sameProvider(provider, "ROCmExecutionProvider")))
        throw std::runtime_error(
            "A relative entry of LD_LIBRARY_PATH would let anybody's library take the place of "
            "the execution provider's");
    else if (sameProvider(provider, "CUDAExecutionProvider"))
        options.AppendExecutionProvider_CUDA(OrtCUDAProviderOptions{});
    else if (sameProvider(provider, "ROCmExecutionProvider"))
        options.AppendExecutionProvider_ROCM(OrtROCMProviderOptions{});
    else
        return false;
    return true;
}

std::string providerRefusal(const std::string& provider)
{
    try
    {
        Ort::SessionOptions options;
        if (sameProvider(provider, directMLProvider))
        {
            const Ort::Status answer = appendDirectML(options, *systemAdapters());
            return answer.IsOK() ? "" : answer.GetErrorMessage();
        }
        const bool known = sameProvider(provider, cpuProvider) || appendProvider(options, provider);
        return known ? "" : "there is no way to ask for it on this system";
    }
    catch (const std::exception& failure)
    {
        return failure.what();
    }
}
