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
    /// A new file: it is no success if there is anything of its name, be it a link.
    Create
};

/// Opens a file in binary mode. Does not wait for the other end of a pipe.
/// \return a stream owned by the caller, or null with the reason in errno
std::FILE* openFile(const std::filesystem::path& path, FileMode mode);

/// fseek for files of any size.
/// \return false if it fails
bool seekFile(std::FILE* file, std::int64_t offset, int origin);

/// What changes when somebody writes to a file.
struct FileVersion
{
    std::int64_t size = 0;
    /// Of the last change of the content, in units and from a beginning that differ between systems.
    std::int64_t time = 0;

    bool operator==(const FileVersion&) const = default;
};

/// The state of an open file.
FileVersion versionOf(std::FILE* file);

/// Makes a stream pass bytes unchanged from now on.
void makeBinary(std::FILE* stream);

/// Has the system bring a file, or the names in a folder, to the disk, where a crash of the machine leaves
/// them. Windows does this for names by itself.
/// \return false if it fails, with the reason in errno
bool syncToDisk(const std::filesystem::path& path);

/// Makes a folder that other users cannot enter, where the system knows such.
/// \return false if it fails or there is anything of that name, with the reason in errno
bool makePrivateFolder(const std::filesystem::path& path);

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_FILES_H
