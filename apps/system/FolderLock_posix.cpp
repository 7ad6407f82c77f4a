// SPDX-License-Identifier: MIT
#include "system/FolderLock.h"

#include <cerrno>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

/// \return a descriptor with the lock
int lockFile(const std::filesystem::path& folder, const std::filesystem::path& file)
{
    constexpr int access = 0666;
    const int descriptor = open(file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, access);
    if (descriptor >= 0 && flock(descriptor, LOCK_EX | LOCK_NB) == 0)
        return descriptor;
    const int reason = errno;
    if (descriptor >= 0)
        close(descriptor);
    if (reason == EWOULDBLOCK)
        throw Failure("Another run is writing to the folder " + quoted(folder) + ".");
    throw Failure("Cannot lock the folder " + quoted(folder) + " by " + quoted(file) + ": " +
                  asReason(std::generic_category().message(reason)) + ".");
}

/// Whether the name still is that of the locked file: its former owner may have removed it just before.
bool isFile(const std::filesystem::path& path, int descriptor)
{
    struct stat named = {};
    struct stat open = {};
    return lstat(path.c_str(), &named) == 0 && fstat(descriptor, &open) == 0 && named.st_dev == open.st_dev &&
           named.st_ino == open.st_ino;
}

} // namespace

FolderLock::FolderLock(const std::filesystem::path& folder) : location(folder / fileName)
{
    int descriptor = lockFile(folder, location);
    while (!isFile(location, descriptor))
    {
        close(descriptor);
        descriptor = lockFile(folder, location);
    }
    handle = descriptor;
}

FolderLock::~FolderLock()
{
    removeFile();
    close(static_cast<int>(handle));
}

void FolderLock::removeFile() const noexcept
{
    if (isFile(location, static_cast<int>(handle)))
        unlink(location.c_str());
}

} // namespace tonwerk::app
