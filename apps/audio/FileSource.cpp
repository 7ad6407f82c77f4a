// SPDX-License-Identifier: MIT
#include "audio/FileSource.h"

#include <algorithm>
#include <cstdio>
#include <system_error>

#include "system/Failure.h"
#include "system/Interrupts.h"
#include "system/Text.h"

namespace tonwerk::app
{

FileSource::FileSource(const std::filesystem::path& path) : file(path, FileMode::Read)
{
    std::error_code failure;
    length = static_cast<std::int64_t>(std::filesystem::file_size(path, failure));
    if (failure)
        throw Failure("The song " + quoted(path) + " cannot be read: " + asReason(failure.message()) + ".");
}

std::size_t FileSource::read(void* bytes, std::size_t count)
{
    if (interruptRequested())
        return 0;
    const std::size_t done = file.read(bytes, count);
    place += static_cast<std::int64_t>(done);
    return done;
}

std::int64_t FileSource::seek(std::int64_t offset, int origin)
{
    const std::int64_t from = origin == SEEK_SET ? 0 : origin == SEEK_CUR ? place : length;
    if (offset < -from)
        return -1;
    const std::int64_t target = from + std::min(offset, length - from); // the plain sum may overflow
    if (!file.seek(target, SEEK_SET))
        return -1;
    place = target;
    return place;
}

void FileSource::requireGood() const
{
    if (interruptRequested())
        throw Interrupted();
    file.requireGood();
}

} // namespace tonwerk::app
