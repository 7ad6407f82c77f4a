// SPDX-License-Identifier: MIT
#include <stdexcept>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

#include "ProcessFigures.h"

namespace
{

std::size_t threadCount()
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE)
        throw std::runtime_error("the system does not tell the threads");
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    std::size_t count = 0;
    for (BOOL more = Thread32First(snapshot, &entry); more != FALSE; more = Thread32Next(snapshot, &entry))
        if (entry.th32OwnerProcessID == GetCurrentProcessId())
            ++count;
    CloseHandle(snapshot);
    return count;
}

} // namespace

ProcessFigures processFigures()
{
    PROCESS_MEMORY_COUNTERS memory{};
    DWORD handles = 0;
    if (GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory) == FALSE ||
        GetProcessHandleCount(GetCurrentProcess(), &handles) == FALSE)
        throw std::runtime_error("the system does not tell the memory or the handles");
    return {static_cast<double>(memory.WorkingSetSize) / 1e6,
            static_cast<double>(memory.PeakWorkingSetSize) / 1e6, threadCount(), handles};
}
