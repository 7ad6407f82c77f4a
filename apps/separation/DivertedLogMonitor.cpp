// SPDX-License-Identifier: MIT
#include "separation/DivertedLogMonitor.h"

#include <array>
#include <sstream>

#include "system/Failure.h"
#include "system/Files.h"
#include "system/Text.h"

namespace tonwerk::app
{

DivertedLogMonitor::DivertedLogMonitor(DivertedOutput streams) : streams(streams)
{
    if (streams.written == nullptr)
        throw Failure("The folder for temporary files is not writable (TMPDIR, on Windows TEMP, names it).");
}

std::vector<LibraryMessage> DivertedLogMonitor::take()
{
    const std::lock_guard lock(guard);
    readNew();
    const unsigned mine = threadNumber();
    std::vector<LibraryMessage> taken;
    for (auto record = records.begin(); record != records.end();)
    {
        if (record->thread != mine)
        {
            ++record;
            continue;
        }
        taken.push_back(std::move(record->message));
        record = records.erase(record);
    }
    return taken;
}

void DivertedLogMonitor::readNew()
{
    std::array<char, 4096> bytes{};
    // The file has grown since its end was reached. Windows notices only when the position is set.
    std::clearerr(streams.written);
    seekFile(streams.written, 0, SEEK_CUR);
    while (const std::size_t count = std::fread(bytes.data(), 1, bytes.size(), streams.written))
        unfinished.append(bytes.data(), count);
    for (std::size_t end = unfinished.find('\n'); end != std::string::npos; end = unfinished.find('\n'))
    {
        add(unfinished.substr(0, end));
        unfinished.erase(0, end + 1);
    }
}

/// A record begins like "2026-11-21 08:41:17.602 WARN  [36] [function@2] text". Other lines continue the
/// previous record.
void DivertedLogMonitor::add(const std::string& line)
{
    std::istringstream fields(line);
    std::string date;
    std::string time;
    std::string severity;
    char bracket = 0;
    unsigned thread = 0;
    std::string function;
    std::string text;
    if (fields >> date >> time >> severity >> bracket >> thread && bracket == '[' &&
        fields >> bracket >> function)
    {
        std::getline(fields, text);
        records.push_back({thread, {severity == "ERROR" || severity == "FATAL", asReason(text)}});
    }
    else if (!records.empty())
    {
        std::string& last = records.back().message.text;
        last = asReason(last.append(" ").append(line));
    }
}

} // namespace tonwerk::app
