// SPDX-License-Identifier: MIT
#ifndef TONWERK_TESTS_C_REALTIME_REALTIMEGUARD_H
#define TONWERK_TESTS_C_REALTIME_REALTIMEGUARD_H

#include <functional>
#include <ostream>

/// Watches what an audio thread must not do: ask for memory or give it back, touch a lock, a condition or a
/// semaphore, or call the system. For that this program has its own malloc and pthread functions, which every
/// library in the process uses, and a filter of the kernel's (seccomp) traps each system call of a thread.
///
/// Linux, without sanitizers, which have their own malloc and locks.
namespace realtime
{

/// What a guarded piece of code did, in all threads, since the program began.
struct Offences
{
    int allocations;
    int locks;
    int systemCalls;

    friend bool operator==(const Offences&, const Offences&) = default;
};

Offences offences();

/// Calls `action` on a thread of its own which the kernel watches, and waits for its end. Exceptions must not
/// leave it.
void runWatched(const std::function<void()>& action);

/// For as long as it lives, the offences of this thread count. On a watched thread only, and not nested.
class Guard
{
public:
    Guard();
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    ~Guard();
};

/// So that failed tests can print them.
inline std::ostream& operator<<(std::ostream& stream, const Offences& offences)
{
    return stream << offences.allocations << " allocations, " << offences.locks << " locks, "
                  << offences.systemCalls << " system calls";
}

} // namespace realtime

#endif // TONWERK_TESTS_C_REALTIME_REALTIMEGUARD_H
