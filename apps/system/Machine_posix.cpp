// SPDX-License-Identifier: MIT
#include "system/Machine.h"

#include <cstdlib>
#include <fstream>

#include <dlfcn.h>
#include <link.h>

namespace tonwerk::app
{

std::filesystem::path programFile()
{
    return std::filesystem::read_symlink("/proc/self/exe");
}

std::filesystem::path libraryFile()
{
    link_map* entry = nullptr;
    void* library = dlopen("libtonwerk_c.so.1", RTLD_LAZY | RTLD_NOLOAD);
    if (library == nullptr || dlinfo(library, RTLD_DI_LINKMAP, &entry) != 0)
        return {};
    // The name may contain "..", but the library itself uses its real folder.
    std::filesystem::path file = std::filesystem::weakly_canonical(entry->l_name);
    dlclose(library);
    return file;
}

std::string environmentVariable(const std::string& name)
{
    const char* value = std::getenv(name.c_str());
    return value != nullptr ? value : "";
}

std::string processorName()
{
    std::ifstream description("/proc/cpuinfo");
    for (std::string line; std::getline(description, line);)
        if (const std::size_t colon = line.find(": "); line.starts_with("model name") && colon != line.npos)
            return line.substr(colon + 2);
    return "";
}

} // namespace tonwerk::app
