// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_INTERRUPTS_H
#define TONWERK_APPS_SYSTEM_INTERRUPTS_H

#include <chrono>
#include <functional>
#include <list>
#include <mutex>

namespace tonwerk::app
{

/// The exit code of an interrupted program.
inline constexpr int interruptedExitCode = 130;

/// How long a program that was asked to stop may take to end by itself.
inline constexpr std::chrono::milliseconds graceAfterInterrupt{600};

/// From here on, a request to stop (Ctrl-C, the end of the session) sets a flag, so that the program can tidy
/// up. If that takes longer than the grace, because it waits for a file or a library, all TidyUps are done
/// for it and the process ends. A second request ends it at once. Readers that go away and files that grow
/// too large are failures of writing from here on, and no requests.
void watchInterrupts();

/// Whether a request to stop has arrived.
bool interruptRequested();

/// What is to be done when a request to stop arrives.
class OnInterrupt
{
public:
    /// \param action done on another thread while everything goes on, at once if there has been a request; must
    ///        not throw
    explicit OnInterrupt(std::function<void()> action);
    ~OnInterrupt();

    OnInterrupt(const OnInterrupt&) = delete;
    OnInterrupt& operator=(const OnInterrupt&) = delete;

private:
    std::list<std::function<void()>>::iterator place;
};

/// What has to be tidied up at the end of this object, or if the process ends without destructors.
class TidyUp
{
public:
    /// \param action perhaps done on another thread while everything goes on; must not throw
    explicit TidyUp(std::function<void()> action);
    ~TidyUp();

    TidyUp(const TidyUp&) = delete;
    TidyUp& operator=(const TidyUp&) = delete;

private:
    std::list<std::function<void()>>::iterator place;
};

/// What happens while this object exists is not broken off by a request to stop. Keep it short.
class Unbroken
{
public:
    Unbroken();

private:
    std::lock_guard<std::recursive_mutex> lock;
};

// For watchInterrupts(), on a thread of its own.

/// Does what OnInterrupts there are.
void actOnInterrupt();

/// Does what TidyUps are left, tells of the interruption, and ends the process.
[[noreturn]] void endInterrupted();

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_INTERRUPTS_H
