// SPDX-License-Identifier: MIT
/// \file Log.h
/// The one door to the logger: every source that logs includes this header and nothing of plog itself.
///
/// Records go to logger instance 0. While no logger exists (see api/LogSetup.h and c/LogRoute.h) a log
/// statement costs one test.
#ifndef TONWERK_COMMON_LOG_H
#define TONWERK_COMMON_LOG_H

#include <plog/Log.h>

/// The most talkative records that this thread makes, besides what the logger lets pass. Everything, unless
/// somebody has set it.
inline plog::Severity& threadLogLevel()
{
    thread_local plog::Severity level = plog::verbose;
    return level;
}

/// Whether a record of this severity is wanted, by this thread and by the logger.
inline bool isLogged(plog::Severity severity)
{
    const auto* const logger = plog::get();
    return severity <= threadLogLevel() && logger != nullptr && logger->checkSeverity(severity);
}

/// Does the statement that follows if a record of this severity is wanted.
#define TONWERK_IF_LOGGED(severity)                                                                          \
    if (!isLogged(plog::severity))                                                                           \
    {                                                                                                        \
        ;                                                                                                    \
    }                                                                                                        \
    else

/// Logs under the name of the operation that a helper works for, so that the log tells what the host called
/// and not how the work is divided.
#define TONWERK_LOG_AS(functionName, severity)                                                               \
    TONWERK_IF_LOGGED(severity)                                                                              \
    (*plog::get()) += plog::Record(plog::severity, functionName, __LINE__, PLOG_GET_FILE(), nullptr,         \
                                   PLOG_DEFAULT_INSTANCE_ID)                                                 \
                          .ref()

/// Logs under the enclosing function's name: `TONWERK_LOG(debug) << "text" << value;`
#define TONWERK_LOG(severity) TONWERK_LOG_AS(PLOG_GET_FUNC(), severity)

#endif // TONWERK_COMMON_LOG_H
