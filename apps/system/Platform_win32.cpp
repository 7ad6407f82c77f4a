// SPDX-License-Identifier: MIT
#include "system/Platform.h"

#include <array>
#include <atomic>
#include <cwchar>
#include <vector>

#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace tonwerk::app::platform
{

namespace
{

std::atomic<bool> stopRequested{false};

// Runs on a thread of the system's. After a closed console or the end of a session the process ends as soon
// as this returns, so then the thread waits for the main one, within the few seconds that the system grants.
BOOL WINAPI requestStop(DWORD event)
{
    const bool again = stopRequested.exchange(true);
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        Sleep(INFINITE);
    return again ? FALSE : TRUE;
}

HANDLE openTemporary(const wchar_t* path, DWORD access, DWORD disposition)
{
    return CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                       disposition, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
}

/// A temporary file, opened for appending and once more for reading.
struct TemporaryFile
{
    int appending = -1;
    int reading = -1;
};

TemporaryFile openTemporaryFile()
{
    std::array<wchar_t, MAX_PATH + 1> folder{};
    std::array<wchar_t, MAX_PATH + 1> path{};
    if (GetTempPathW(MAX_PATH, folder.data()) == 0 ||
        GetTempFileNameW(folder.data(), L"ton", 0, path.data()) == 0)
        return {};
    const HANDLE appending =
        openTemporary(path.data(), FILE_APPEND_DATA | SYNCHRONIZE | DELETE, CREATE_ALWAYS);
    const HANDLE reading = openTemporary(path.data(), GENERIC_READ | DELETE, OPEN_EXISTING);
    if (appending == INVALID_HANDLE_VALUE || reading == INVALID_HANDLE_VALUE)
        return {};
    return {_open_osfhandle(reinterpret_cast<std::intptr_t>(appending), _O_APPEND | _O_WRONLY | _O_BINARY),
            _open_osfhandle(reinterpret_cast<std::intptr_t>(reading), _O_RDONLY | _O_BINARY)};
}

} // namespace

std::FILE* openFile(const std::filesystem::path& path, FileMode mode)
{
    return _wfopen(path.c_str(), mode == FileMode::read ? L"rb" : L"wb");
}

bool seekFile(std::FILE* file, std::int64_t offset, int origin)
{
    return _fseeki64(file, offset, origin) == 0;
}

void makeBinary(std::FILE* stream)
{
    _setmode(_fileno(stream), _O_BINARY);
}

void setUpConsole()
{
    SetConsoleOutputCP(CP_UTF8);
}

bool standardErrorIsTerminal()
{
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

DivertedOutput divertStandardOutput()
{
    std::fflush(stdout);
    const int former = _dup(_fileno(stdout));
    std::FILE* const output = former >= 0 ? _fdopen(former, "w") : nullptr;
    const TemporaryFile file = openTemporaryFile();
    if (output == nullptr || file.reading < 0 || _dup2(file.appending, _fileno(stdout)) != 0)
        return {output != nullptr ? output : stderr, nullptr};
    _close(file.appending);
    return {output, _fdopen(file.reading, "rb")};
}

unsigned threadNumber()
{
    return GetCurrentThreadId();
}

std::string inLowerCase(const std::string& utf8)
{
    const std::wstring text = std::filesystem::path(std::u8string(utf8.begin(), utf8.end())).wstring();
    std::vector<wchar_t> lower(text.size());
    if (LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_LOWERCASE, text.c_str(), static_cast<int>(text.size()),
                      lower.data(), static_cast<int>(lower.size()), nullptr, nullptr, 0) == 0)
        return utf8;
    const std::u8string result = std::filesystem::path(lower.begin(), lower.end()).u8string();
    return {result.begin(), result.end()};
}

void watchInterrupts()
{
    SetConsoleCtrlHandler(requestStop, TRUE);
}

bool interruptRequested()
{
    return stopRequested;
}

} // namespace tonwerk::app::platform
