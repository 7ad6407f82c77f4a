// SPDX-License-Identifier: MIT
#include "system/Files.h"

#include <fcntl.h>
#include <io.h>

namespace tonwerk::app
{

std::FILE* openFile(const std::filesystem::path& path, FileMode mode)
{
    return _wfopen(path.c_str(), mode == FileMode::Read ? L"rb" : L"wb");
}

bool seekFile(std::FILE* file, std::int64_t offset, int origin)
{
    return _fseeki64(file, offset, origin) == 0;
}

void makeBinary(std::FILE* stream)
{
    _setmode(_fileno(stream), _O_BINARY);
}

} // namespace tonwerk::app
