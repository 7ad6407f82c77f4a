// SPDX-License-Identifier: MIT
#include "system/Platform.h"

#include <atomic>
#include <csignal>
#include <cwchar>
#include <cwctype>
#include <system_error>

#include <fcntl.h>
#include <locale.h> // NOLINT(modernize-deprecated-headers): POSIX's newlocale stands in no other
#include <unistd.h>

namespace tonwerk::app::platform
{

namespace
{

std::atomic<bool> stopRequested{false};

extern "C" void requestStop(int)
{
    stopRequested = true;
}

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

std::FILE* openFile(const std::filesystem::path& path, FileMode mode)
{
    return std::fopen(path.c_str(), mode == FileMode::read ? "rb" : "wb");
}

bool seekFile(std::FILE* file, std::int64_t offset, int origin)
{
    return fseeko(file, offset, origin) == 0;
}

void makeBinary(std::FILE*) {}

void setUpConsole() {}

bool standardErrorIsTerminal()
{
    return isatty(STDERR_FILENO) == 1;
}

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

std::string inLowerCase(const std::string& utf8)
{
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (locale == nullptr)
        return utf8;
    const locale_t former = uselocale(locale);
    std::string lower;
    std::mbstate_t reading{};
    std::mbstate_t writing{};
    for (std::size_t place = 0; place < utf8.size();)
    {
        wchar_t character = 0;
        const std::size_t length =
            std::mbrtowc(&character, utf8.data() + place, utf8.size() - place, &reading);
        if (length == 0 || length > utf8.size() - place)
        {
            lower += utf8[place++]; // no UTF-8, which file names need not be
            reading = {};
            continue;
        }
        std::string bytes(MB_CUR_MAX, '\0');
        const std::size_t count = std::wcrtomb(
            bytes.data(), static_cast<wchar_t>(std::towlower(static_cast<wint_t>(character))), &writing);
        lower.append(bytes, 0, count);
        place += length;
    }
    uselocale(former);
    return lower;
}

void watchInterrupts()
{
    struct sigaction action = {};
    action.sa_handler = requestStop;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    {
        // A signal that our parent has switched off (nohup) stays off.
        struct sigaction former = {};
        if (sigaction(signal, nullptr, &former) == 0 && former.sa_handler != SIG_IGN)
            sigaction(signal, &action, nullptr);
    }
}

bool interruptRequested()
{
    return stopRequested;
}

} // namespace tonwerk::app::platform
