// SPDX-License-Identifier: MIT
#include "boundary/ForeignRuntime.h"

#include <array>
#include <filesystem>
#include <stdexcept>

ForeignRuntime openForeignRuntime()
{
    HMODULE module = LoadLibraryW(L"onnxruntime.dll");
    if (module == nullptr)
        throw std::runtime_error("error " + std::to_string(GetLastError()));
    // Through void*: the two function types have nothing in common.
    const auto entry = reinterpret_cast<const OrtApiBase* (*)()>(
        reinterpret_cast<void*>(GetProcAddress(module, "OrtGetApiBase")));
    std::array<wchar_t, 32768> path{};
    GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
    const std::u8string location = std::filesystem::path(path.data()).u8string();
    return {entry(), {location.begin(), location.end()}};
}
