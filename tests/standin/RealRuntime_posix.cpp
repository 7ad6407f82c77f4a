// SPDX-License-Identifier: MIT
#include "RealRuntime.h"

#include <filesystem>

#include <dlfcn.h>

const OrtApiBase* openRealRuntime()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&openRealRuntime), &info) == 0)
        return nullptr;
    const auto folder = std::filesystem::canonical(info.dli_fname).parent_path().parent_path();
    void* handle = dlopen((folder / "libonnxruntime_pelagrin.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr)
        return nullptr;
    const auto getApiBase = reinterpret_cast<const OrtApiBase* (*)()>(dlsym(handle, "OrtGetApiBase"));
    return getApiBase == nullptr ? nullptr : getApiBase();
}
