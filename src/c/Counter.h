// SPDX-License-Identifier: MIT
#ifndef TONWERK_C_COUNTER_H
#define TONWERK_C_COUNTER_H

#include <atomic>
#include <cstdint>

namespace tonwerk::c
{

/// A count that one thread keeps and any thread reads. Wait-free.
class Counter
{
public:
    /// The thread that keeps it.
    void add(std::uint64_t amount)
    {
        count.store(count.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
    }

    std::uint64_t get() const { return count.load(std::memory_order_relaxed); }

private:
    static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
    std::atomic<std::uint64_t> count{0};
};

} // namespace tonwerk::c

#endif // TONWERK_C_COUNTER_H
