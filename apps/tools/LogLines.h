// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_LOGLINES_H
#define TONWERK_APPS_TOOLS_LOGLINES_H

#include <memory>
#include <string>
#include <vector>

#include "common/Log.h"

namespace tonwerk::app
{

/// While it lives, keeps what the inference code of this program logs, down to informations. (The library has
/// a log of its own.) One at a time.
class LogLines : private plog::IAppender
{
public:
    LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;
    ~LogLines() override;

    /// The messages since the last call as UTF-8, without the mark of the module that they come from.
    std::vector<std::string> take();

private:
    void write(const plog::Record& record) override;

    std::vector<std::string> lines;
    std::unique_ptr<plog::Logger<PLOG_DEFAULT_INSTANCE_ID>> logger;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_LOGLINES_H
