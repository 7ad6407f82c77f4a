// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_BINARYFILE_H
#define TONWERK_APPS_SYSTEM_BINARYFILE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "system/Files.h"

namespace tonwerk::app
{

/// An open binary file; the destructor closes it. Reads and writes report failures by their results, for use
/// in callbacks of C libraries, and the object remembers the first failure.
class BinaryFile
{
public:
    /// \throws Failure if the file cannot be opened
    BinaryFile(std::filesystem::path path, FileMode mode);

    /// \return the number of bytes read, less than `size` at the end of the file or after a failure
    std::size_t read(void* bytes, std::size_t size);

    /// \return the number of bytes written, less than `size` after a failure
    std::size_t write(const void* bytes, std::size_t size);

    /// Moves to a byte. `origin` is SEEK_SET, SEEK_CUR or SEEK_END.
    /// \return false after a failure
    bool seek(std::int64_t offset, int origin);

    /// Passes the written data to the system, so that other programs can read it.
    /// \throws Failure after this or any earlier failure (a full disk, for instance)
    void flush();

    /// \throws Failure after any earlier failure
    void requireGood() const;

    /// The file's state now: another one when somebody writes to it.
    FileVersion version() const { return versionOf(stream.get()); }

    /// \throws Failure after this or any earlier failure
    void close();

private:
    struct Closer
    {
        void operator()(std::FILE* stream) const { std::fclose(stream); }
    };

    void note(bool good);

    std::filesystem::path location;
    FileMode fileMode;
    std::unique_ptr<std::FILE, Closer> stream;
    int firstError = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_BINARYFILE_H
