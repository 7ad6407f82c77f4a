// SPDX-License-Identifier: MIT
#ifndef TONWERK_C_RUNTURNS_H
#define TONWERK_C_RUNTURNS_H

#include <condition_variable>
#include <functional>
#include <mutex>

namespace tonwerk::c
{

/// Lets the users of one network run it one at a time. Thread-safe.
class RunTurns
{
public:
    /// Waits until nobody runs the network, or until `givenUp` returns true; it is asked at the beginning,
    /// and after each reconsider().
    /// \return whether the turn was got; leave() must follow then
    bool enter(const std::function<bool()>& givenUp);

    void leave();

    /// Has all who wait ask whether they have given up.
    void reconsider();

private:
    std::mutex mutex;
    std::condition_variable changed;
    bool taken = false;
};

} // namespace tonwerk::c

#endif // TONWERK_C_RUNTURNS_H
