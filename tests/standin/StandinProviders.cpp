#include <cstdint>
#include <cstring>
#include <sstream>

#include "StandinParts.h"

namespace
{

OrtStatus* ORT_API_CALL getAvailableProviders(char*** names, int* count) noexcept
{
    if (OrtStatus* status = scripted("GetAvailableProviders"))
        return status;
    const auto& providers = standin().providers;
    *count = static_cast<int>(providers.size());
    *names = new char*[providers.size()];
    for (std::size_t i = 0; i < providers.size(); ++i)
    {
        (*names)[i] = new char[providers[i].size() + 1];
        std::strcpy((*names)[i], providers[i].c_str());
    }
    create("provider list");
    return nullptr;
}

OrtStatus* ORT_API_CALL releaseAvailableProviders(char** names, int count) noexcept
{
    release("provider list", names);
    for (int i = 0; i < count; ++i)
        delete[] names[i];
    delete[] names;
    return nullptr;
}

OrtStatus* ORT_API_CALL createSessionOptions(OrtSessionOptions** out) noexcept
{
    record("CreateSessionOptions");
    return made("session options", realApi().CreateSessionOptions(out));
}

void ORT_API_CALL releaseSessionOptions(OrtSessionOptions* options) noexcept
{
    if (options != nullptr)
        record("ReleaseSessionOptions");
    release("session options", options);
    realApi().ReleaseSessionOptions(options);
}

OrtStatus* ORT_API_CALL setSessionExecutionMode(OrtSessionOptions* options, ExecutionMode mode) noexcept
{
    record("SetSessionExecutionMode " + std::to_string(mode));
    if (OrtStatus* status = scripted("SetSessionExecutionMode"))
        return status;
    return counted(realApi().SetSessionExecutionMode(options, mode));
}

OrtStatus* ORT_API_CALL disableMemPattern(OrtSessionOptions* options) noexcept
{
    record("DisableMemPattern");
    if (OrtStatus* status = scripted("DisableMemPattern"))
        return status;
    return counted(realApi().DisableMemPattern(options));
}

/// The only function of the DirectML table that is used; it stands first.
struct DirectMLTable
{
    OrtStatus*(ORT_API_CALL* append)(OrtSessionOptions* options, int device);
};

OrtStatus* ORT_API_CALL appendDirectML(OrtSessionOptions* /*options*/, int device)
{
    record("AppendDML " + std::to_string(device));
    return scripted("AppendDML");
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
    if (OrtStatus* status = scripted("GetExecutionProviderApi"))
        return status;
    if (standin().directML == Standin::DirectMLTable::missing)
        *table = nullptr;
    else
        *table = standin().directML == Standin::DirectMLTable::own ? &ownTable : &realTable;
    return nullptr;
}

OrtStatus* ORT_API_CALL appendCuda(OrtSessionOptions* /*options*/,
                                   const OrtCUDAProviderOptions* cuda) noexcept
{
    std::ostringstream text;
    text << "AppendCUDA device=" << cuda->device_id << " search="
         << (cuda->cudnn_conv_algo_search == OrtCudnnConvAlgoSearchExhaustive ? "exhaustive" : "other")
         << " limit=" << (cuda->gpu_mem_limit == SIZE_MAX ? "none" : "some")
         << " arena=" << cuda->arena_extend_strategy << " copy=" << cuda->do_copy_in_default_stream
         << " stream=" << cuda->has_user_compute_stream
         << " config=" << (cuda->default_memory_arena_cfg == nullptr ? "none" : "some")
         << " tunable=" << cuda->tunable_op_enable << cuda->tunable_op_tuning_enable;
    record(text.str());
    return scripted("AppendCUDA");
}

OrtStatus* ORT_API_CALL appendRocm(OrtSessionOptions* /*options*/,
                                   const OrtROCMProviderOptions* rocm) noexcept
{
    std::ostringstream text;
    text << "AppendROCM device=" << rocm->device_id << " search=" << rocm->miopen_conv_exhaustive_search
         << " limit=" << (rocm->gpu_mem_limit == SIZE_MAX ? "none" : "some")
         << " arena=" << rocm->arena_extend_strategy << " copy=" << rocm->do_copy_in_default_stream
         << " stream=" << rocm->has_user_compute_stream
         << " config=" << (rocm->default_memory_arena_cfg == nullptr ? "none" : "some")
         << " graph=" << rocm->enable_hip_graph << " tunable=" << rocm->tunable_op_enable
         << rocm->tunable_op_tuning_enable;
    record(text.str());
    return scripted("AppendROCM");
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
