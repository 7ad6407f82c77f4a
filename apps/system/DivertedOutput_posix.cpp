// SPDX-License-Identifier: MIT
#include "system/DivertedOutput.h"

#include <filesystem>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace tonwerk::app
{

namespace
{

/// A temporary file without a name, opened for appending and once more for reading.
struct TemporaryFile
{
    int appending = -1;
    int reading = -1;
};

TemporaryFile openTemporaryFile()
{
    std::error_code failure;
    std::string path = (std::filesystem::temp_directory_path(failure) / "tonwerk-log-XXXXXX").string();
    TemporaryFile file;
    file.appending = failure ? -1 : mkostemp(path.data(), O_APPEND | O_CLOEXEC);
    if (file.appending >= 0)
    {
        file.reading = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        unlink(path.c_str());
    }
    return file;
}

} // namespace

DivertedOutput divertStandardOutput()
{
    std::fflush(stdout);
    const int former = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    std::FILE* const output = former >= 0 ? fdopen(former, "w") : nullptr;
    const TemporaryFile file = openTemporaryFile();
    if (output == nullptr || file.reading < 0 || dup2(file.appending, STDOUT_FILENO) < 0)
        return {output != nullptr ? output : stderr, nullptr};
    close(file.appending);
    return {output, fdopen(file.reading, "r")};
}

unsigned threadNumber()
{
    return static_cast<unsigned>(gettid());
}

} // namespace tonwerk::app
