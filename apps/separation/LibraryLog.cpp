// SPDX-License-Identifier: MIT
#include "separation/LibraryLog.h"

#include <array>
#include <sstream>

#include "system/DivertedOutput.h"
#include "system/Files.h"
#include "system/Text.h"

namespace tonwerk::app
{

std::vector<LibraryLog::Record> LibraryLog::take()
{
    const std::lock_guard lock(guard);
    readNew();
    const unsigned mine = threadNumber();
    std::vector<Record> taken;
    for (auto record = records.begin(); record != records.end();)
    {
        if (record->thread != mine)
        {
            ++record;
            continue;
        }
        taken.push_back(std::move(*record));
        record = records.erase(record);
    }
    return taken;
}

void LibraryLog::readNew()
{
    std::array<char, 4096> bytes{};
    // The end that was seen last has moved on. Windows forgets it only when the position is set.
    std::clearerr(file);
    seekFile(file, 0, SEEK_CUR);
    while (const std::size_t count = std::fread(bytes.data(), 1, bytes.size(), file))
        unfinished.append(bytes.data(), count);
    for (std::size_t end = unfinished.find('\n'); end != std::string::npos; end = unfinished.find('\n'))
    {
        add(unfinished.substr(0, end));
        unfinished.erase(0, end + 1);
    }
}

/// A record begins as "2026-11-21 08:41:17.602 WARN  [36] [function@2] text"; other lines go on with the one
/// before.
void LibraryLog::add(const std::string& line)
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
        records.push_back({thread, severity == "ERROR" || severity == "FATAL", asReason(text)});
    }
    else if (!records.empty())
    {
        records.back().text = asReason(records.back().text.append(" ").append(line));
    }
}

} // namespace tonwerk::app
