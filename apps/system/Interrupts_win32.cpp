// SPDX-License-Identifier: MIT
#include "system/Interrupts.h"

#include <atomic>

#include <windows.h>

namespace tonwerk::app
{

namespace
{

std::atomic<bool> stopRequested{false};

// Runs on a thread of the system, of its own for every event. After a closed console or the end of a session
// the process ends as soon as this returns.
BOOL WINAPI requestStop(DWORD)
{
    if (stopRequested.exchange(true))
        return FALSE;
    actOnInterrupt();
    Sleep(static_cast<DWORD>(graceAfterInterrupt.count()));
    endInterrupted();
}

} // namespace

void watchInterrupts()
{
    SetConsoleCtrlHandler(requestStop, TRUE);
}

bool interruptRequested()
{
    return stopRequested;
}

} // namespace tonwerk::app
