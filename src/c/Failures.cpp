// SPDX-License-Identifier: MIT
#include "c/Failures.h"

#include <cstdio>

namespace tonwerk::c
{

namespace
{

// Long enough for a path and the system's reason. NOLINTNEXTLINE(modernize-avoid-c-arrays)
thread_local char lastText[1024] = "";

} // namespace

tonwerk_status report(tonwerk_status status, const char* reason) noexcept
{
    const char* blank = *reason == '\0' ? "" : " ";
    std::snprintf(lastText, sizeof lastText, "%s%s%s", tonwerk_status_text(status), blank, reason);
    return status;
}

const char* lastError() noexcept
{
    return lastText;
}

} // namespace tonwerk::c
