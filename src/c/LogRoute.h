// SPDX-License-Identifier: MIT
/// \file LogRoute.h
/// Where the lines of the log go: every context says what becomes of its own.
#ifndef TONWERK_C_LOGROUTE_H
#define TONWERK_C_LOGROUTE_H

#include <memory>

#include "common/Log.h"
#include "tonwerk/tonwerk_c.h"

namespace tonwerk::c
{

/// What becomes of a context's lines.
struct LogTarget
{
    tonwerk_log_callback callback = nullptr; ///< null: text lines on standard output
    void* user = nullptr;                    ///< for the callback
    plog::Severity level = plog::warning;    ///< the most talkative lines that are wanted
};

/// Lines of threads that are in no call, such as the runtime's own ones, go to the target added last, as long
/// as somebody keeps it. Sets up the log if there is none, for the rest of the process: it does not end with
/// a context, so that others can go on writing.
/// \throws std::bad_alloc
void addLogTarget(const std::shared_ptr<const LogTarget>& target);

/// For as long as it lives, the lines of this thread go to one target.
class LogScope
{
public:
    explicit LogScope(std::shared_ptr<const LogTarget> target) noexcept;
    LogScope(const LogScope&) = delete;
    LogScope& operator=(const LogScope&) = delete;
    ~LogScope();

private:
    std::shared_ptr<const LogTarget> target;
    const LogTarget* formerTarget;
    plog::Severity formerLevel;
};

} // namespace tonwerk::c

#endif // TONWERK_C_LOGROUTE_H
