// SPDX-License-Identifier: MIT
#include "boundary/LoadedRuntime.h"

#include <cstdlib>

#include <windows.h>

bool isRuntimeLoaded()
{
    return GetModuleHandleW(L"onnxruntime_pelagrin.dll") != nullptr ||
           GetModuleHandleW(L"onnxruntime.dll") != nullptr || GetModuleHandleW(L"DirectML.dll") != nullptr;
}

std::string missingFileReason()
{
    return "(error 126)"; // ERROR_MOD_NOT_FOUND
}

std::string wrongFormatReason()
{
    return "(error 193)"; // ERROR_BAD_EXE_FORMAT
}

void setLibrarySearchPath(const std::string& path)
{
    static const char* given = std::getenv("PATH");
    static const std::string former = given == nullptr ? "" : given;
    _putenv_s("PATH", (path + ";" + former).c_str());
}

bool searchPathLeadsToTheRuntime()
{
    return false; // PATH is not where the library looks
}

void unsetVariable(const std::string& name)
{
    _putenv_s(name.c_str(), "");
}
