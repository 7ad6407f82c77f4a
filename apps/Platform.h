#ifndef TONWERK_APPS_PLATFORM_H
#define TONWERK_APPS_PLATFORM_H

#include <cstdint>
#include <cstdio>
#include <filesystem>

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

/// fseek for files of any size. \return false if it fails
bool seekFile(std::FILE* file, std::int64_t offset, int origin);

/// Makes a console show our UTF-8 text.
void setUpConsole();

/// Whether standard error is seen by a person and not kept in a file or pipe.
bool standardErrorIsTerminal();

/// From here on, a request to stop (Ctrl-C, end of session) only sets a flag, so that the program can tidy
/// up; a second request ends the program at once.
void watchInterrupts();

/// Whether a request to stop has come.
bool interruptRequested();

} // namespace tonwerk::app::platform

#endif // TONWERK_APPS_PLATFORM_H
