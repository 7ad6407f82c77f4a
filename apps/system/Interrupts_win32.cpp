// SPDX-License-Identifier: MIT
#include "system/Interrupts.h"

#include <atomic>

#include <windows.h>

namespace tonwerk::app
{

namespace
{

std::atomic<bool> stopRequested{false};

// Runs on a thread of the system. After a closed console or the end of a session the process ends as soon as
// this returns, so then the thread waits for the main one, for the few seconds that the system grants.
BOOL WINAPI requestStop(DWORD event)
{
    const bool again = stopRequested.exchange(true);
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        Sleep(INFINITE);
    return again ? FALSE : TRUE;
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
