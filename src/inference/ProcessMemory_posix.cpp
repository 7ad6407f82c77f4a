// SPDX-License-Identifier: MIT
#include "inference/ProcessMemory.h"

#include <fstream>
#include <string>

std::uint64_t residentBytes()
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (std::uint64_t kilobytes = 0; word == "VmRSS:" && status >> kilobytes)
            return 1024 * kilobytes;
    return 0;
}
