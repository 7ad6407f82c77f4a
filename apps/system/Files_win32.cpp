// SPDX-License-Identifier: MIT
#include "system/Files.h"

#include <cerrno>
#include <cstdint>
#include <system_error>

#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace tonwerk::app
{

namespace
{

void setReason()
{
    const std::error_code reason(static_cast<int>(GetLastError()), std::system_category());
    errno = reason.default_error_condition().value();
}

/// Unlike the C library's files, ours can be removed while they are open.
HANDLE openHandle(const std::filesystem::path& path, DWORD access, DWORD disposition)
{
    const HANDLE file =
        CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        setReason();
    return file;
}

std::int64_t joined(DWORD high, DWORD low)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(high) << 32U | low);
}

} // namespace

std::FILE* openFile(const std::filesystem::path& path, FileMode mode)
{
    const bool reading = mode == FileMode::Read;
    const HANDLE file =
        openHandle(path, reading ? GENERIC_READ : GENERIC_WRITE, reading ? OPEN_EXISTING : CREATE_NEW);
    if (file == INVALID_HANDLE_VALUE)
        return nullptr;
    const int number =
        _open_osfhandle(reinterpret_cast<std::intptr_t>(file), _O_BINARY | (reading ? _O_RDONLY : _O_WRONLY));
    return number < 0 ? nullptr : _fdopen(number, reading ? "rb" : "wb");
}

bool seekFile(std::FILE* file, std::int64_t offset, int origin)
{
    return _fseeki64(file, offset, origin) == 0;
}

FileVersion versionOf(std::FILE* file)
{
    BY_HANDLE_FILE_INFORMATION state{};
    if (GetFileInformationByHandle(reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(file))), &state) == 0)
        return {};
    return {joined(state.nFileSizeHigh, state.nFileSizeLow),
            joined(state.ftLastWriteTime.dwHighDateTime, state.ftLastWriteTime.dwLowDateTime)};
}

void makeBinary(std::FILE* stream)
{
    _setmode(_fileno(stream), _O_BINARY);
}

bool syncToDisk(const std::filesystem::path& path)
{
    std::error_code unknown;
    if (std::filesystem::is_directory(path, unknown))
        return true;
    const HANDLE file = openHandle(path, GENERIC_WRITE, OPEN_EXISTING);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    const bool done = FlushFileBuffers(file) != 0;
    if (!done)
        setReason();
    CloseHandle(file);
    return done;
}

bool makePrivateFolder(const std::filesystem::path& path)
{
    const bool made = CreateDirectoryW(path.c_str(), nullptr) != 0;
    if (!made)
        setReason();
    return made;
}

} // namespace tonwerk::app
