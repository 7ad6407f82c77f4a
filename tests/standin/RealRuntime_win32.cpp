// SPDX-License-Identifier: MIT
#include "RealRuntime.h"

#include <array>
#include <filesystem>

const OrtApiBase* openRealRuntime()
{
    HMODULE own = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&openRealRuntime), &own);
    std::array<wchar_t, 32768> path{};
    GetModuleFileNameW(own, path.data(), static_cast<DWORD>(path.size()));
    const auto folder = std::filesystem::path(path.data()).parent_path().parent_path();
    HMODULE runtime = LoadLibraryExW((folder / L"onnxruntime_pelagrin.dll").c_str(), nullptr,
                                     LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
    if (runtime == nullptr)
        return nullptr;
    // Through void*: the two function types have nothing in common.
    const auto getApiBase = reinterpret_cast<const OrtApiBase* (*)()>(
        reinterpret_cast<void*>(GetProcAddress(runtime, "OrtGetApiBase")));
    return getApiBase == nullptr ? nullptr : getApiBase();
}
