#include "inference/ExecutionProviders.h"

#include <algorithm>
#include <cstdint>

#include "inference/DmlAdapterChoice.h"

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

// Both statuses are received, so that they are released, and deliberately not tested.
void appendDirectML(Ort::SessionOptions& options)
{
    options.SetExecutionMode(ORT_SEQUENTIAL);
    options.DisableMemPattern();
    const void* table = nullptr;
    const Ort::Status found(Ort::GetApi().GetExecutionProviderApi("DML", ORT_API_VERSION, &table));
    const std::int32_t deviceIndex = selectDmlAdapterIndex();
    if (table != nullptr)
        const Ort::Status appended(
            static_cast<const DmlApi*>(table)->appendExecutionProvider(options, deviceIndex));
}

} // namespace

std::deque<std::string> providerPreference(const std::string& preferred)
{
    std::deque<std::string> names{"DmlExecutionProvider",  "QNNExecutionProvider",    "CUDAExecutionProvider",
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
    if (sameProvider(provider, "DmlExecutionProvider"))
        appendDirectML(options);
    else if (sameProvider(provider, "CUDAExecutionProvider"))
        options.AppendExecutionProvider_CUDA(OrtCUDAProviderOptions{});
    else if (sameProvider(provider, "ROCmExecutionProvider"))
        options.AppendExecutionProvider_ROCM(OrtROCMProviderOptions{});
    else
        return false;
    return true;
}
