// SPDX-License-Identifier: MIT
#include "system/Interrupts.h"

#include <atomic>
#include <csignal>

namespace tonwerk::app
{

namespace
{

std::atomic<bool> stopRequested{false};

extern "C" void requestStop(int)
{
    stopRequested = true;
}

} // namespace

void watchInterrupts()
{
    struct sigaction action = {};
    action.sa_handler = requestStop;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    {
        // Signals that the parent ignores (nohup) stay ignored.
        struct sigaction former = {};
        if (sigaction(signal, nullptr, &former) == 0 && former.sa_handler != SIG_IGN)
            sigaction(signal, &action, nullptr);
    }
}

bool interruptRequested()
{
    return stopRequested;
}

} // namespace tonwerk::app
