// SPDX-License-Identifier: MIT
#include "system/Interrupts.h"

#include <atomic>
#include <csignal>
#include <semaphore.h>
#include <thread>

namespace tonwerk::app
{

namespace
{

std::atomic<bool> stopRequested{false};
sem_t wakeUp; // what a signal handler may use

extern "C" void requestStop(int)
{
    stopRequested = true;
    sem_post(&wakeUp);
}

void watch()
{
    while (sem_wait(&wakeUp) != 0)
    {
    }
    actOnInterrupt();
    std::this_thread::sleep_for(graceAfterInterrupt);
    endInterrupted();
}

/// Signals that the parent ignores (nohup) stay ignored.
void handle(int signal, const struct sigaction& action)
{
    struct sigaction former = {};
    if (sigaction(signal, nullptr, &former) == 0 && former.sa_handler != SIG_IGN)
        sigaction(signal, &action, nullptr);
}

} // namespace

void watchInterrupts()
{
    sem_init(&wakeUp, 0, 0);
    std::thread(watch).detach();
    struct sigaction action = {};
    action.sa_handler = requestStop;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGXCPU})
        handle(signal, action);
    action = {};
    action.sa_handler = SIG_IGN;
    for (const int signal : {SIGPIPE, SIGXFSZ})
        handle(signal, action);
}

bool interruptRequested()
{
    return stopRequested;
}

} // namespace tonwerk::app
