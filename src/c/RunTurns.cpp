// SPDX-License-Identifier: MIT
#include "c/RunTurns.h"

namespace tonwerk::c
{

bool RunTurns::enter(const std::function<bool()>& givenUp)
{
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return !taken || givenUp(); });
    if (givenUp())
        return false;
    taken = true;
    return true;
}

void RunTurns::leave()
{
    {
        const std::lock_guard lock(mutex);
        taken = false;
    }
    changed.notify_all();
}

void RunTurns::reconsider()
{
    // Who has asked already and waits not yet is let through to waiting first.
    {
        const std::lock_guard lock(mutex);
    }
    changed.notify_all();
}

} // namespace tonwerk::c
