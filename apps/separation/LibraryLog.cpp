// SPDX-License-Identifier: MIT
#include "separation/LibraryLog.h"

#include <exception>
#include <utility>

#include <tonwerk/tonwerk_c.h>

#include "system/Text.h"

namespace tonwerk::app
{

void LibraryLog::add(void* log, std::int32_t level, const char* text) noexcept
{
    auto& self = *static_cast<LibraryLog*>(log);
    try
    {
        const std::lock_guard lock(self.guard);
        self.lines.push_back({level == TONWERK_LOG_ERROR, asReason(text)});
    }
    catch (const std::exception&) // no exception may cross the library
    {
        return;
    }
}

std::vector<LibraryLog::Line> LibraryLog::take()
{
    const std::lock_guard lock(guard);
    return std::exchange(lines, {});
}

} // namespace tonwerk::app
