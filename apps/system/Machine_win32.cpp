// SPDX-License-Identifier: MIT
#include "system/Machine.h"

#include <windows.h>

#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

std::filesystem::path moduleFile(HMODULE module)
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;)
    {
        const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size())
            return path.substr(0, length);
        path.resize(2 * path.size());
    }
}

} // namespace

std::filesystem::path programFile()
{
    return moduleFile(nullptr);
}

std::filesystem::path libraryFile()
{
    const HMODULE library = GetModuleHandleW(L"tonwerk_c.dll");
    return library != nullptr ? moduleFile(library) : std::filesystem::path();
}

std::string environmentVariable(const std::string& name)
{
    const std::wstring key(name.begin(), name.end());
    std::wstring value(GetEnvironmentVariableW(key.c_str(), nullptr, 0), L'\0');
    value.resize(GetEnvironmentVariableW(key.c_str(), value.data(), static_cast<DWORD>(value.size())));
    return toText(value);
}

std::string processorName()
{
    wchar_t name[256] = {}; // NOLINT(modernize-avoid-c-arrays): what the system call fills
    DWORD size = sizeof name;
    const auto found = RegGetValueW(HKEY_LOCAL_MACHINE, L"HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0",
                                    L"ProcessorNameString", RRF_RT_REG_SZ, nullptr, name, &size);
    return found == ERROR_SUCCESS ? toText(std::filesystem::path(name)) : "";
}

} // namespace tonwerk::app
