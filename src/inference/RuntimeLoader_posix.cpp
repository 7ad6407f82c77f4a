// SPDX-License-Identifier: MIT
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include <dlfcn.h>

#include "inference/RuntimeLoader.h"

namespace
{

constexpr const char* fileName = "libonnxruntime_pelagrin.so";
constexpr const char* entryPoint = "OrtGetApiBase";

/// The folder of the module that contains this code, by the kernel's record of what is mapped where. The
/// dynamic loader's record may be relative to a directory that is no longer the current one.
std::string ownFolder()
{
    RuntimeLibrary (*code)() = &openRuntimeLibrary;
    const auto address = reinterpret_cast<std::uintptr_t>(code);
    std::ifstream mappings("/proc/self/maps");
    for (std::string line; std::getline(mappings, line);)
    {
        std::istringstream fields(line);
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
        char dash = 0;
        fields >> std::hex >> begin >> dash >> end;
        const std::size_t path = line.find('/');
        if (begin <= address && address < end && path != std::string::npos)
            return line.substr(path, line.rfind('/') - path);
    }
    throw std::runtime_error(std::string("Cannot find the folder from which to load ") + fileName);
}

/// The loader reads empty and relative entries of this variable as folders below the current directory.
bool searchPathIsAbsolute()
{
    const char* variable = std::getenv("LD_LIBRARY_PATH");
    if (variable == nullptr || *variable == '\0')
        return true;
    std::string entries(variable);
    for (char& separator : entries)
        separator = separator == ';' ? ':' : separator;
    std::istringstream list(entries + ":");
    for (std::string entry; std::getline(list, entry, ':');)
        if (entry.empty() || entry.front() != '/')
            return false;
    return true;
}

std::string lastReason()
{
    const char* reason = dlerror();
    return reason != nullptr ? reason : "unknown reason";
}

void* openLibrary(const std::string& folder, std::string& location)
{
    location = folder + "/" + fileName;
    if (void* handle = dlopen(location.c_str(), RTLD_NOW | RTLD_LOCAL))
        return handle;
    std::string reasons = lastReason();
    std::string places = "in " + folder;
    if (searchPathIsAbsolute())
    {
        if (void* handle = dlopen(fileName, RTLD_NOW | RTLD_LOCAL))
        {
            location = fileName;
            return handle;
        }
        places += " and in the system's library folders";
        reasons += "; " + lastReason();
    }
    throw std::runtime_error(std::string("Cannot load the inference runtime ") + fileName + ", looked for " +
                             places + ": " + reasons);
}

} // namespace

RuntimeLibrary openRuntimeLibrary()
{
    return openRuntimeLibrary(ownFolder());
}

RuntimeLibrary openRuntimeLibrary(const std::filesystem::path& folder)
{
    std::string location;
    void* handle = openLibrary(folder.string(), location);
    using GetApiBase = const OrtApiBase* (*)();
    const auto getApiBase = reinterpret_cast<GetApiBase>(dlsym(handle, entryPoint));
    if (getApiBase == nullptr)
    {
        const std::string reason = lastReason();
        dlclose(handle);
        throw std::runtime_error("The inference runtime " + location + " has no entry point " + entryPoint +
                                 ": " + reason);
    }
    return {getApiBase(), location};
}
