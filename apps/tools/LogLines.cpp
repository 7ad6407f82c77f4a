// SPDX-License-Identifier: MIT
#include "tools/LogLines.h"

#include <string_view>
#include <utility>

#include <plog/Converters/UTF8Converter.h>

namespace tonwerk::app
{

LogLines::LogLines() : logger(std::make_unique<plog::Logger<PLOG_DEFAULT_INSTANCE_ID>>(plog::info))
{
    logger->addAppender(this);
}

LogLines::~LogLines() = default;

std::vector<std::string> LogLines::take()
{
    return std::exchange(lines, {});
}

void LogLines::write(const plog::Record& record)
{
    constexpr std::string_view mark = "[INFERENCE_onnx] ";
    std::string line = plog::UTF8Converter::convert(record.getMessage());
    if (line.starts_with(mark))
        line.erase(0, mark.size());
    lines.push_back(std::move(line));
}

} // namespace tonwerk::app
