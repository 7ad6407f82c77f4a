// SPDX-License-Identifier: MIT
#include "system/Files.h"

namespace tonwerk::app
{

std::FILE* openFile(const std::filesystem::path& path, FileMode mode)
{
    return std::fopen(path.c_str(), mode == FileMode::Read ? "rb" : "wb");
}

bool seekFile(std::FILE* file, std::int64_t offset, int origin)
{
    return fseeko(file, offset, origin) == 0;
}

void makeBinary(std::FILE*) {}

} // namespace tonwerk::app
