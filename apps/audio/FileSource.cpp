// SPDX-License-Identifier: MIT
#include "audio/FileSource.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "system/Failure.h"
#include "system/Interrupts.h"
#include "system/Sha256.h"
#include "system/Text.h"

namespace tonwerk::app
{

FileSource::FileSource(const std::filesystem::path& path)
    : location(path), file(path, FileMode::Read), version(file.version()), length(version.size)
{
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

std::string FileSource::sha256()
{
    Sha256 hash;
    std::vector<char> bytes(1 << 20);
    seek(0, SEEK_SET);
    while (const std::size_t count = read(bytes.data(), bytes.size()))
        hash.feed(bytes.data(), count);
    requireGood();
    if (file.version() != version)
        throw Failure("The song " + quoted(location) + " has changed while it was being read.");
    return hash.hexadecimal();
}

} // namespace tonwerk::app
