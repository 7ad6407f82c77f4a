// SPDX-License-Identifier: MIT
#include "system/DivertedOutput.h"

#include <array>
#include <cstdint>

#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace tonwerk::app
{

namespace
{

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

} // namespace tonwerk::app
