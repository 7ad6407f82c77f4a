// SPDX-License-Identifier: MIT
#include "boundary/LoadedRuntime.h"

#include <cstdlib>
#include <fstream>

bool isRuntimeLoaded()
{
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        if (line.find("libonnxruntime") != std::string::npos)
            return true;
    return false;
}

std::string missingFileReason()
{
    return "No such file or directory";
}

std::string wrongFormatReason()
{
    return "file too short";
}

void setLibrarySearchPath(const std::string& path)
{
    setenv("LD_LIBRARY_PATH", path.c_str(), 1);
}

bool searchPathLeadsToTheRuntime()
{
    return true;
}

void unsetVariable(const std::string& name)
{
    unsetenv(name.c_str());
}
