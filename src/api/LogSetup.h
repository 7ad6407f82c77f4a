// SPDX-License-Identifier: MIT
#ifndef TONWERK_API_LOGSETUP_H
#define TONWERK_API_LOGSETUP_H

#include <memory>

#include "common/Log.h"

/// The process-wide log, owned by whoever set it up, or nothing if it existed already. Not guarded: contexts
/// are constructed one after another.
class LogOwnership
{
public:
    /// Sets up the log if there is none: warnings and errors as text lines on standard output.
    LogOwnership();
    LogOwnership(const LogOwnership&) = delete;
    LogOwnership& operator=(const LogOwnership&) = delete;

    /// Ends the log, if owned: the logger goes before the appender that it writes to.
    ~LogOwnership();

private:
    std::unique_ptr<plog::IAppender> appender;
    std::unique_ptr<plog::Logger<PLOG_DEFAULT_INSTANCE_ID>> logger;
};

#endif // TONWERK_API_LOGSETUP_H
