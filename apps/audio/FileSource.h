// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_FILESOURCE_H
#define TONWERK_APPS_AUDIO_FILESOURCE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "system/BinaryFile.h"

namespace tonwerk::app
{

/// The file that the decoders of C libraries read through call-backs. They open no file themselves, so that
/// every name works on every system. Nothing is thrown while they run: requireGood() tells afterwards.
class FileSource
{
public:
    /// \throws Failure if the file cannot be opened or read
    explicit FileSource(const std::filesystem::path& path);

    /// \return the number of bytes read; 0 at the end, after a failure and once the user asked to stop
    std::size_t read(void* bytes, std::size_t count);

    /// Moves to a byte, or to the end if the offset leads beyond it, where there is nothing to read.
    /// \param origin SEEK_SET, SEEK_CUR or SEEK_END
    /// \return the new position, or -1 if it would lie before the file's start
    std::int64_t seek(std::int64_t offset, int origin);

    std::int64_t position() const { return place; }
    std::int64_t size() const { return length; }

    /// \throws Failure after a failure to read, Interrupted once the user asked to stop
    void requireGood() const;

    /// SHA-256 of the file's bytes, which are those that have been read.
    /// \throws Failure if they cannot be read again or have been changed, Interrupted
    std::string sha256();

private:
    std::filesystem::path location;
    BinaryFile file;
    FileVersion version; ///< at the beginning
    std::int64_t length = 0;
    std::int64_t place = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_FILESOURCE_H
