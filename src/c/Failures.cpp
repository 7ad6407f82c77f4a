// SPDX-License-Identifier: MIT
#include "c/Failures.h"

#include <array>
#include <cstdio>

namespace tonwerk::c
{

namespace
{

// Long enough for a path and the system's reason. NOLINTNEXTLINE(modernize-avoid-c-arrays)
thread_local char lastText[1024] = "";

struct StatusText
{
    tonwerk_status status;
    const char* sentence;
};

constexpr std::array<StatusText, 8> statusTexts{
    {{TONWERK_OK, "All is well."},
     {TONWERK_INVALID_ARGUMENT, "An argument is invalid."},
     {TONWERK_OUT_OF_MEMORY, "There is not enough memory."},
     {TONWERK_MODEL_REFUSED, "The model cannot be loaded."},
     {TONWERK_STREAM_ENDED, "The stream has been flushed and takes no more input."},
     {TONWERK_STREAM_FAILED, "The stream has failed and takes no more input."},
     {TONWERK_CANCELLED, "The stream was cancelled and takes no more input."},
     {TONWERK_PROVIDER_REFUSED, "The execution provider cannot be had."}}};

} // namespace

const char* statusText(tonwerk_status status) noexcept
{
    for (const StatusText& entry : statusTexts)
        if (entry.status == status)
            return entry.sentence;
    return "The status is unknown.";
}

tonwerk_status report(tonwerk_status status, const char* reason) noexcept
{
    const char* blank = *reason == '\0' ? "" : " ";
    std::snprintf(lastText, sizeof lastText, "%s%s%s", statusText(status), blank, reason);
    return status;
}

const char* lastError() noexcept
{
    return lastText;
}

} // namespace tonwerk::c
