// SPDX-License-Identifier: MIT
#include "inference/ProcessMemory.h"

#include <windows.h>

#include <psapi.h>

std::uint64_t residentBytes()
{
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof counters;
    // The name in kernel32: no other DLL is needed.
    return K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters) != FALSE
               ? counters.WorkingSetSize
               : 0;
}
