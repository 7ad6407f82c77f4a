// SPDX-License-Identifier: MIT
#include "system/BinaryFile.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

Failure failureOf(const char* deed, const std::filesystem::path& path, int error)
{
    return Failure("Cannot " + std::string(deed) + " " + quoted(path) + ": " +
                   asReason(std::generic_category().message(error)) + ".");
}

} // namespace

BinaryFile::BinaryFile(std::filesystem::path path, FileMode mode)
    : location(std::move(path)), fileMode(mode), stream(openFile(location, mode))
{
    if (!stream)
        throw failureOf("open", location, errno);
}

std::size_t BinaryFile::read(void* bytes, std::size_t size)
{
    errno = 0;
    const std::size_t count = std::fread(bytes, 1, size, stream.get());
    note(std::ferror(stream.get()) == 0);
    return count;
}

std::size_t BinaryFile::write(const void* bytes, std::size_t size)
{
    const std::size_t count = std::fwrite(bytes, 1, size, stream.get());
    note(count == size);
    return count;
}

bool BinaryFile::seek(std::int64_t offset, int origin)
{
    const bool good = seekFile(stream.get(), offset, origin);
    // Decoders seek to positions that the file states, so a wrong one is the file's fault, not the system's.
    if (fileMode == FileMode::Create)
        note(good);
    return good;
}

void BinaryFile::flush()
{
    note(std::fflush(stream.get()) == 0);
    requireGood();
}

void BinaryFile::requireGood() const
{
    if (firstError != 0)
        throw failureOf(fileMode == FileMode::Read ? "read" : "write", location, firstError);
}

void BinaryFile::close()
{
    note(std::fclose(stream.release()) == 0);
    requireGood();
}

void BinaryFile::note(bool good)
{
    if (!good && firstError == 0)
        firstError = errno != 0 ? errno : EIO;
}

} // namespace tonwerk::app
