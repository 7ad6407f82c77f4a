// SPDX-License-Identifier: MIT
#include "system/Files.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tonwerk::app
{

std::FILE* openFile(const std::filesystem::path& path, FileMode mode)
{
    constexpr int access = 0666;
    const bool reading = mode == FileMode::Read;
    const int flags = reading ? O_RDONLY | O_NONBLOCK : O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
    const int file = open(path.c_str(), flags | O_CLOEXEC, access);
    return file < 0 ? nullptr : fdopen(file, reading ? "rb" : "wb");
}

bool seekFile(std::FILE* file, std::int64_t offset, int origin)
{
    return fseeko(file, offset, origin) == 0;
}

FileVersion versionOf(std::FILE* file)
{
    constexpr std::int64_t nanoseconds = 1'000'000'000;
    struct stat state = {};
    if (fstat(fileno(file), &state) != 0)
        return {};
    return {state.st_size, state.st_mtim.tv_sec * nanoseconds + state.st_mtim.tv_nsec};
}

void makeBinary(std::FILE*) {}

bool syncToDisk(const std::filesystem::path& path)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    // Some file systems have nothing to bring to a disk.
    const bool done = fsync(file) == 0 || errno == EINVAL || errno == ENOTSUP;
    const int reason = errno;
    close(file);
    errno = reason;
    return done;
}

bool makePrivateFolder(const std::filesystem::path& path)
{
    return mkdir(path.c_str(), S_IRWXU) == 0;
}

} // namespace tonwerk::app
