// SPDX-License-Identifier: MIT
#include "api/LogSetup.h"

#include <plog/Appenders/ConsoleAppender.h>
#include <plog/Formatters/TxtFormatter.h>

LogOwnership::LogOwnership()
{
    if (plog::get() != nullptr)
        return;
    appender = std::make_unique<plog::ConsoleAppender<plog::TxtFormatter>>();
    logger = std::make_unique<plog::Logger<PLOG_DEFAULT_INSTANCE_ID>>(plog::warning);
    logger->addAppender(appender.get());
}

LogOwnership::~LogOwnership() = default;
