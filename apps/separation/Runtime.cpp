// SPDX-License-Identifier: MIT
#include "separation/Runtime.h"

#include <string_view>

#include "inference/RuntimeLoader.h"
#include "system/Failure.h"
#include "system/Machine.h"
#include "system/Text.h"

namespace tonwerk::app
{

std::string loadRuntime()
{
    try
    {
        const RuntimeLibrary& library = openRuntimeLibrary(libraryFile().parent_path());
        return "ONNX Runtime " + std::string(library.apiBase->GetVersionString()) + ", " +
               quoted(toPath(library.location));
    }
    catch (const std::exception& failure)
    {
        throw Failure(asReason(failure.what()) + '.');
    }
}

std::vector<std::string> offeredProviders()
{
    loadRuntime();
    return Ort::GetAvailableProviders();
}

// The runtime writes "FILE:LINE FUNCTION [ONNXRuntimeError] : 1 : FAIL : REASON", and with DirectML
// "FILE(LINE)\MODULE!ADDRESS: (caller: ADDRESS) Exception(1) tid(10c) 887A0004 REASON".
std::string runtimeReason(const std::string& message)
{
    const std::size_t thread = message.find(" tid(");
    if (const std::size_t end = message.find(") ", thread);
        thread != std::string::npos && end != std::string::npos)
        return "HRESULT " + asReason(message.substr(end + 2));
    constexpr std::string_view separator = " : ";
    std::size_t start = message.rfind("[ONNXRuntimeError] : ");
    for (int field = 0; field < 3 && start != std::string::npos; ++field)
    {
        start = message.find(separator, start);
        if (start != std::string::npos)
            start += separator.size();
    }
    return asReason(start == std::string::npos ? message : message.substr(start));
}

} // namespace tonwerk::app
