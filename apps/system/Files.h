// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_FILES_H
#define TONWERK_APPS_SYSTEM_FILES_H

#include <cstdint>
#include <cstdio>
#include <filesystem>

namespace tonwerk::app
{

enum class FileMode
{
    Read,
    Write
};

/// Opens a file in binary mode, in write mode as a new, empty one.
/// \return a stream owned by the caller, or null with the reason in errno
std::FILE* openFile(const std::filesystem::path& path, FileMode mode);

/// fseek for files of any size.
/// \return false if it fails
bool seekFile(std::FILE* file, std::int64_t offset, int origin);

/// Makes a stream pass bytes unchanged from now on.
void makeBinary(std::FILE* stream);

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_FILES_H
