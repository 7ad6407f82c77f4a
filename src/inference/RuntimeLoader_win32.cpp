// SPDX-License-Identifier: MIT
#include "inference/RuntimeLoader.h"

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

#include <delayimp.h>

namespace
{

constexpr const wchar_t* fileName = L"onnxruntime_pelagrin.dll";
constexpr const char* entryPoint = "OrtGetApiBase";

std::string toUtf8(const std::filesystem::path& text)
{
    const std::u8string utf8 = text.u8string();
    return {utf8.begin(), utf8.end()};
}

std::string reasonText(DWORD code)
{
    wchar_t text[512] = {}; // NOLINT(modernize-avoid-c-arrays): what the system call fills
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                        code, 0, text, 512, nullptr);
    std::wstring reason(text, length);
    while (!reason.empty() && (reason.back() == L'\n' || reason.back() == L'\r' || reason.back() == L'.'))
        reason.pop_back();
    return toUtf8(reason) + " (error " + std::to_string(code) + ")";
}

std::wstring modulePath(HMODULE module)
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;)
    {
        const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size())
        {
            path.resize(length);
            return path;
        }
        path.resize(2 * path.size());
    }
}

std::wstring ownFolder()
{
    HMODULE module = nullptr;
    std::wstring (*code)() = &ownFolder;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(code), &module);
    const std::wstring path = modulePath(module);
    return path.substr(0, path.find_last_of(L"\\/"));
}

struct FreeModule
{
    void operator()(HMODULE module) const { FreeLibrary(module); }
};

using ModuleHandle = std::unique_ptr<std::remove_pointer_t<HMODULE>, FreeModule>;

ModuleHandle openLibrary(const std::wstring& folder)
{
    // The runtime's own dependencies are looked for beside it too, before the system's copies.
    if (HMODULE module = LoadLibraryExW((folder + L"\\" + fileName).c_str(), nullptr,
                                        LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS))
        return ModuleHandle(module);
    const std::string reason = reasonText(GetLastError());
    if (HMODULE module = LoadLibraryExW(fileName, nullptr, LOAD_LIBRARY_SEARCH_DEFAULT_DIRS))
        return ModuleHandle(module);
    throw std::runtime_error("Cannot load the inference runtime " + toUtf8(fileName) + ", looked for in " +
                             toUtf8(folder) + " and where the system looks for libraries: " + reason + "; " +
                             reasonText(GetLastError()));
}

HMODULE runtimeModule = nullptr;

/// Hands the delay-load helper the module that has been loaded already. By name alone it might find another
/// module of that name in the host's process, and a failure of its own would end the process.
FARPROC WINAPI useLoadedModule(unsigned notification, PDelayLoadInfo)
{
    return notification == dliNotePreLoadLibrary ? reinterpret_cast<FARPROC>(runtimeModule) : nullptr;
}

RuntimeLibrary load(const std::wstring& folder)
{
    ModuleHandle module = openLibrary(folder);
    const std::string location = toUtf8(modulePath(module.get()));
    // Through void*: the two function types have nothing in common.
    const auto getApiBase = reinterpret_cast<const OrtApiBase* (*)()>(
        reinterpret_cast<void*>(GetProcAddress(module.get(), entryPoint)));
    if (getApiBase == nullptr)
        throw std::runtime_error("The inference runtime " + location + " has no entry point " + entryPoint +
                                 ": " + reasonText(GetLastError()));
    // All that can fail comes before the delayed import is bound: the delay-load helper would end the
    // process, and what is bound cannot be changed for a better one.
    useRuntime({getApiBase(), location});
    runtimeModule = module.release();
    return {OrtGetApiBase(), location};
}

} // namespace

extern "C"
{
    // As const as the helper's header declares it: Microsoft's does, MinGW's does not.
    decltype(__pfnDliNotifyHook2) __pfnDliNotifyHook2 = // NOLINT(bugprone-reserved-identifier)
        useLoadedModule;
}

// The runtime loads them from its own folder, by their full path.
bool librariesHaveFixedPlaces()
{
    return true;
}

const RuntimeLibrary& openRuntimeLibrary()
{
    return openRuntimeLibrary(ownFolder());
}

const RuntimeLibrary& openRuntimeLibrary(const std::filesystem::path& folder)
{
    static const RuntimeLibrary first = load(folder.wstring());
    return first;
}
