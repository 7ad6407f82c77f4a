// SPDX-License-Identifier: MIT
#ifndef TONWERK_C_FAILURES_H
#define TONWERK_C_FAILURES_H

#include <exception>
#include <new>

#include "tonwerk/tonwerk_c.h"

namespace tonwerk::c
{

/// The sentence of a status; for a number that is none, one that says so.
const char* statusText(tonwerk_status status) noexcept;

/// Keeps the status's sentence and the reason (may be empty) as this thread's last error. Allocates nothing:
/// a text too long is cut.
/// \return the status
tonwerk_status report(tonwerk_status status, const char* reason) noexcept;

/// This thread's last error.
const char* lastError() noexcept;

/// Calls `action`, which returns a status, and turns what it throws into one: memory that runs out into
/// TONWERK_OUT_OF_MEMORY, anything else into `otherwise`.
template <typename Action>
tonwerk_status guarded(tonwerk_status otherwise, Action action) noexcept
{
    try
    {
        return action();
    }
    catch (const std::bad_alloc&)
    {
        return report(TONWERK_OUT_OF_MEMORY, "");
    }
    catch (const std::exception& failure)
    {
        return report(otherwise, failure.what());
    }
    catch (...)
    {
        return report(otherwise, "");
    }
}

} // namespace tonwerk::c

#endif // TONWERK_C_FAILURES_H
