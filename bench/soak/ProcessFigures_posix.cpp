// SPDX-License-Identifier: MIT
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "ProcessFigures.h"

namespace
{

/// A number from the kernel's table of this process.
double statusValue(const std::string& name)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(name + ":"))
            return std::stod(line.substr(name.size() + 1));
    throw std::runtime_error("the kernel does not tell " + name);
}

} // namespace

ProcessFigures processFigures()
{
    constexpr double megabytesPerKibibyte = 1024.0 / 1e6;
    const std::filesystem::directory_iterator open("/proc/self/fd");
    const auto handles = static_cast<std::size_t>(std::distance(begin(open), end(open)));
    return {statusValue("VmRSS") * megabytesPerKibibyte, statusValue("VmHWM") * megabytesPerKibibyte,
            static_cast<std::size_t>(statusValue("Threads")), handles};
}
