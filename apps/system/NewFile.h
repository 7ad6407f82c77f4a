// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_NEWFILE_H
#define TONWERK_APPS_SYSTEM_NEWFILE_H

#include <cstddef>
#include <filesystem>

namespace tonwerk::app
{

/// Writes a file whose name is free.
/// \throws Failure if it cannot be written; what there is of it then stays
void writeNewFile(const std::filesystem::path& path, const void* bytes, std::size_t size);

/// Writes a file completely or not at all, and to the disk: first under another name, then it takes the place
/// of an older file. What is no file is not replaced.
/// \throws Failure if it cannot be written
/// \throws Interrupted if the user asks to stop
void replaceFile(const std::filesystem::path& path, const void* bytes, std::size_t size);

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_NEWFILE_H
