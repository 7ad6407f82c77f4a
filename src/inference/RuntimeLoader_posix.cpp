// SPDX-License-Identifier: MIT
#include "inference/RuntimeLoader.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <link.h>

namespace
{

constexpr const char* fileName = "libonnxruntime_pelagrin.so";
constexpr const char* entryPoint = "OrtGetApiBase";

/// The folder of the module that contains this code, by the kernel's record of what is mapped where. The
/// dynamic loader's record may be relative to a directory that is no longer the current one.
std::string ownFolder()
{
    std::string (*code)() = &ownFolder;
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

struct CloseLibrary
{
    void operator()(void* handle) const { dlclose(handle); }
};

using LibraryHandle = std::unique_ptr<void, CloseLibrary>;

/// The module that contains this code.
LibraryHandle ownModule()
{
    Dl_info info{};
    void* record = nullptr;
    dladdr1(reinterpret_cast<const void*>(&ownFolder), &info, &record, RTLD_DL_LINKMAP);
    const char* name = record == nullptr ? nullptr : static_cast<const link_map*>(record)->l_name;
    return LibraryHandle(dlopen(name, RTLD_LAZY | RTLD_NOLOAD));
}

/// Whether the loader, asked for a library by its bare name, keeps away from the current directory. Its list
/// is made when the process starts, of variables that may have changed since, so the loader itself is asked.
bool searchPathIsAbsolute()
{
    const LibraryHandle module = ownModule();
    Dl_serinfo size{};
    if (module == nullptr || dlinfo(module.get(), RTLD_DI_SERINFOSIZE, &size) != 0)
        return false;
    std::vector<std::max_align_t> room(size.dls_size / sizeof(std::max_align_t) + 1);
    auto* list = reinterpret_cast<Dl_serinfo*>(room.data());
    list->dls_size = size.dls_size;
    list->dls_cnt = size.dls_cnt;
    if (dlinfo(module.get(), RTLD_DI_SERINFO, list) != 0)
        return false;
    const Dl_serpath* paths = list->dls_serpath;
    return std::all_of(paths, paths + list->dls_cnt,
                       [](const Dl_serpath& path) { return *path.dls_name == '/'; });
}

std::string lastReason()
{
    const char* reason = dlerror();
    return reason != nullptr ? reason : "unknown reason";
}

LibraryHandle openLibrary(const std::string& folder, std::string& location)
{
    location = folder + "/" + fileName;
    if (void* handle = dlopen(location.c_str(), RTLD_NOW | RTLD_LOCAL))
        return LibraryHandle(handle);
    std::string reasons = lastReason();
    std::string places = "in " + folder;
    if (searchPathIsAbsolute())
    {
        if (void* handle = dlopen(fileName, RTLD_NOW | RTLD_LOCAL))
        {
            location = fileName;
            return LibraryHandle(handle);
        }
        places += " and where the system looks for libraries";
        reasons += "; " + lastReason();
    }
    throw std::runtime_error(std::string("Cannot load the inference runtime ") + fileName + ", looked for " +
                             places + ": " + reasons);
}

RuntimeLibrary load(const std::string& folder)
{
    std::string location;
    LibraryHandle handle = openLibrary(folder, location);
    using GetApiBase = const OrtApiBase* (*)();
    const auto getApiBase = reinterpret_cast<GetApiBase>(dlsym(handle.get(), entryPoint));
    if (getApiBase == nullptr)
        throw std::runtime_error("The inference runtime " + location + " has no entry point " + entryPoint +
                                 ": " + lastReason());
    RuntimeLibrary library{getApiBase(), location};
    useRuntime(library);
    static_cast<void>(handle.release()); // it stays
    return library;
}

} // namespace

bool librariesHaveFixedPlaces()
{
    return searchPathIsAbsolute();
}

const RuntimeLibrary& openRuntimeLibrary()
{
    return openRuntimeLibrary(ownFolder());
}

const RuntimeLibrary& openRuntimeLibrary(const std::filesystem::path& folder)
{
    static const RuntimeLibrary first = load(folder.string());
    return first;
}
