// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_LOGLINES_H
#define TONWERK_APPS_TOOLS_LOGLINES_H

#include <memory>
#include <string>
#include <vector>

#include "common/Log.h"

namespace tonwerk::app
{

/// Collects the log of the program's own inference code, from level info, as long as it exists. (The library
/// has its own log.) Only one may exist at a time.
class LogLines : private plog::IAppender
{
public:
    LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;
    ~LogLines() override;

    /// The messages since the last call as UTF-8, without the module's mark.
    std::vector<std::string> take();

private:
    void write(const plog::Record& record) override;

    std::vector<std::string> lines;
    std::unique_ptr<plog::Logger<PLOG_DEFAULT_INSTANCE_ID>> logger;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_LOGLINES_H
