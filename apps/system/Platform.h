// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_PLATFORM_H
#define TONWERK_APPS_SYSTEM_PLATFORM_H

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

/// What the systems do differently.
namespace tonwerk::app::platform
{

enum class FileMode
{
    read,
    write
};

/// Opens a file in binary mode, in write mode as a new, empty one.
/// \return a stream owned by the caller, or null with the reason in errno
std::FILE* openFile(const std::filesystem::path& path, FileMode mode);

/// fseek for files of any size.
/// \return false if it fails
bool seekFile(std::FILE* file, std::int64_t offset, int origin);

/// Bytes pass through this stream as they are from now on.
void makeBinary(std::FILE* stream);

/// Makes a console show our UTF-8 text.
void setUpConsole();

/// Whether standard error is seen by a person and not kept in a file or pipe.
bool standardErrorIsTerminal();

/// Where text goes once standard output has been diverted. Both are open until the process ends.
struct DivertedOutput
{
    /// What standard output was before.
    std::FILE* output;
    /// Reads what has been written to standard output since. Null if that was not possible.
    std::FILE* log;
};

/// Sends everything that is written to standard output from here on to a temporary file, which goes with the
/// process. The library writes its log there, which must not get into what we print.
DivertedOutput divertStandardOutput();

/// The calling thread's number as the library's log lines have it.
unsigned threadNumber();

/// A UTF-8 text in lower case, for comparing file names as systems do that ignore case.
std::string inLowerCase(const std::string& utf8);

/// From here on, a request to stop (Ctrl-C, end of session) only sets a flag, so that the program can tidy
/// up; a second request ends the program at once.
void watchInterrupts();

/// Whether a request to stop has come.
bool interruptRequested();

} // namespace tonwerk::app::platform

#endif // TONWERK_APPS_SYSTEM_PLATFORM_H
