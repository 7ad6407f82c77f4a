// SPDX-License-Identifier: MIT
#include "system/FolderLock.h"

#include <string>
#include <system_error>

#include <windows.h>

#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

// The system removes the file when its only handle is closed.
FolderLock::FolderLock(const std::filesystem::path& folder) : location(folder / fileName)
{
    constexpr DWORD sharedWithNobody = 0;
    const HANDLE file =
        CreateFileW(location.c_str(), GENERIC_WRITE | DELETE, sharedWithNobody, nullptr, OPEN_ALWAYS,
                    FILE_FLAG_DELETE_ON_CLOSE | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        const DWORD reason = GetLastError();
        if (reason == ERROR_SHARING_VIOLATION)
            throw Failure("Another run is writing to the folder " + quoted(folder) + ".");
        throw Failure("Cannot lock the folder " + quoted(folder) + " by " + quoted(location) + ": " +
                      asReason(std::system_category().message(static_cast<int>(reason))) + ".");
    }
    handle = reinterpret_cast<std::intptr_t>(file);
}

FolderLock::~FolderLock()
{
    CloseHandle(reinterpret_cast<HANDLE>(handle));
}

void FolderLock::removeFile() const noexcept {}

} // namespace tonwerk::app
