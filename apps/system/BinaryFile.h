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

/// An open file of bytes, closed with the object. Reading and writing report failures by their results, for
/// use in the call-backs of C libraries; the first failure is remembered.
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

    /// Hands what has been written to the system, so that other programs can read it.
    /// \throws Failure after this or any earlier failure (a full disk, for instance)
    void flush();

    /// \throws Failure after any earlier failure
    void requireGood() const;

    /// \throws Failure after this or any earlier failure
    void close();

    /// Closes the file without asking how it went.
    void discard() { stream.reset(); }

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
