// SPDX-License-Identifier: MIT
#include "system/Interrupts.h"

#include <cstdlib>
#include <string>
#include <utility>

#include "system/Console.h"
#include "system/Failure.h"

namespace tonwerk::app
{

namespace
{

/// Never destroyed: the watching thread may outlive the main one.
struct Registry
{
    std::recursive_mutex guard;
    std::list<std::function<void()>> actions;
    std::list<std::function<void()>> onInterrupt;
};

Registry& registry()
{
    static auto* const only = new Registry;
    return *only;
}

} // namespace

OnInterrupt::OnInterrupt(std::function<void()> action)
{
    const std::lock_guard lock(registry().guard);
    place = registry().onInterrupt.insert(registry().onInterrupt.end(), std::move(action));
    if (interruptRequested())
        (*place)();
}

OnInterrupt::~OnInterrupt()
{
    const std::lock_guard lock(registry().guard);
    registry().onInterrupt.erase(place);
}

void actOnInterrupt()
{
    const std::lock_guard lock(registry().guard);
    for (const auto& action : registry().onInterrupt)
        action();
}

TidyUp::TidyUp(std::function<void()> action)
{
    const std::lock_guard lock(registry().guard);
    place = registry().actions.insert(registry().actions.end(), std::move(action));
}

TidyUp::~TidyUp()
{
    const std::lock_guard lock(registry().guard);
    (*place)();
    registry().actions.erase(place);
}

Unbroken::Unbroken() : lock(registry().guard) {}

void endInterrupted()
{
    const Unbroken everythingElseWaits;
    for (const auto& action : registry().actions)
        action();
    sayAtTheEnd(std::string("tonwerk-separate: ") + Interrupted().what() + "\n");
    std::_Exit(interruptedExitCode);
}

} // namespace tonwerk::app
