// SPDX-License-Identifier: MIT
#include <cstdint>
#include <sstream>

#include "StandinParts.h"

namespace
{

// The list is handed out from the script itself, so there is nothing to give back.
OrtStatus* ORT_API_CALL getAvailableProviders(char*** names, int* count) noexcept
{
    static std::vector<char*> handedOut;
    handedOut.clear();
    for (std::string& provider : standin().providers)
        handedOut.push_back(provider.data());
    *names = handedOut.data();
    *count = static_cast<int>(handedOut.size());
    return unlessScripted("GetAvailableProviders", [] { return nullptr; });
}

OrtStatus* ORT_API_CALL releaseAvailableProviders(char** /*names*/, int /*count*/) noexcept
{
    return nullptr;
}

OrtStatus* ORT_API_CALL createSessionOptions(OrtSessionOptions** out) noexcept
{
    record("CreateSessionOptions");
    const std::string attempt = "options" + std::to_string(++standin().optionsAttempts);
    return unlessScripted(attempt,
                          [&] { return made("session options", realApi().CreateSessionOptions(out)); });
}

void ORT_API_CALL releaseSessionOptions(OrtSessionOptions* options) noexcept
{
    release("session options", options);
    realApi().ReleaseSessionOptions(options);
}

OrtStatus* ORT_API_CALL setSessionExecutionMode(OrtSessionOptions* options, ExecutionMode mode) noexcept
{
    record("SetSessionExecutionMode " + std::to_string(mode));
    return unlessScripted("SetSessionExecutionMode",
                          [&] { return counted(realApi().SetSessionExecutionMode(options, mode)); });
}

OrtStatus* ORT_API_CALL disableMemPattern(OrtSessionOptions* options) noexcept
{
    record("DisableMemPattern");
    return unlessScripted("DisableMemPattern", [&] { return counted(realApi().DisableMemPattern(options)); });
}

/// The only function of the DirectML table that is used; it stands first.
struct DirectMLTable
{
    OrtStatus*(ORT_API_CALL* append)(OrtSessionOptions* options, int device);
};

OrtStatus* ORT_API_CALL appendDirectML(OrtSessionOptions* /*options*/, int device)
{
    record("AppendDML " + std::to_string(device));
    return unlessScripted("AppendDML", [] { return nullptr; });
}

OrtStatus* ORT_API_CALL appendRealDirectML(OrtSessionOptions* options, int device)
{
    const void* table = nullptr;
    OrtStatus* status = realApi().GetExecutionProviderApi("DML", ORT_API_VERSION, &table);
    if (status == nullptr)
        status = static_cast<const DirectMLTable*>(table)->append(options, device);
    record("AppendDML " + std::to_string(device) + (status == nullptr ? " taken" : " refused"));
    return counted(status);
}

OrtStatus* ORT_API_CALL getExecutionProviderApi(const char* name, std::uint32_t version,
                                                const void** table) noexcept
{
    static constexpr DirectMLTable ownTable{appendDirectML};
    static constexpr DirectMLTable realTable{appendRealDirectML};
    record(std::string("GetExecutionProviderApi ") + name + " " + std::to_string(version));
    if (!standin().failing.contains("GetExecutionProviderApi"))
        if (standin().directML != Standin::DirectMLTable::Missing)
            *table = standin().directML == Standin::DirectMLTable::Own ? &ownTable : &realTable;
    return unlessScripted("GetExecutionProviderApi", [] { return nullptr; });
}

/// What the options records of CUDA and ROCm have in common; their first fields differ in name only.
template <typename Options>
OrtStatus* append(const char* function, const Options& options, int search)
{
    std::ostringstream text;
    text << function << " device=" << options.device_id << " search=" << search
         << " limit=" << (options.gpu_mem_limit == SIZE_MAX ? "none" : "some")
         << " arena=" << options.arena_extend_strategy << " copy=" << options.do_copy_in_default_stream
         << " stream=" << options.has_user_compute_stream
         << " config=" << (options.default_memory_arena_cfg == nullptr ? "none" : "some")
         << " tunable=" << options.tunable_op_enable << options.tunable_op_tuning_enable;
    record(text.str());
    return unlessScripted(function, [] { return nullptr; });
}

OrtStatus* ORT_API_CALL appendCuda(OrtSessionOptions* /*options*/,
                                   const OrtCUDAProviderOptions* cuda) noexcept
{
    return append("AppendCUDA", *cuda, cuda->cudnn_conv_algo_search);
}

OrtStatus* ORT_API_CALL appendRocm(OrtSessionOptions* /*options*/,
                                   const OrtROCMProviderOptions* rocm) noexcept
{
    return append("AppendROCM", *rocm, rocm->miopen_conv_exhaustive_search);
}

} // namespace

void patchProviders(OrtApi& table)
{
    table.GetAvailableProviders = getAvailableProviders;
    table.ReleaseAvailableProviders = releaseAvailableProviders;
    table.CreateSessionOptions = createSessionOptions;
    table.ReleaseSessionOptions = releaseSessionOptions;
    table.SetSessionExecutionMode = setSessionExecutionMode;
    table.DisableMemPattern = disableMemPattern;
    table.GetExecutionProviderApi = getExecutionProviderApi;
    table.SessionOptionsAppendExecutionProvider_CUDA = appendCuda;
    table.SessionOptionsAppendExecutionProvider_ROCM = appendRocm;
}
