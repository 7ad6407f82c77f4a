// SPDX-License-Identifier: MIT
#include "separation/LibraryCall.h"

#include <new>
#include <string_view>

#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

/// The last error begins with the status's own sentence. What follows tells more, if anything does.
std::string reasonOf(tonwerk_status status)
{
    const std::string_view general = tonwerk_status_text(status);
    std::string_view whole = tonwerk_last_error();
    if (whole.starts_with(general) && whole.size() > general.size())
        whole.remove_prefix(general.size());
    return asReason(std::string(whole));
}

} // namespace

void requireDone(tonwerk_status status, const std::string& sentence)
{
    if (status == TONWERK_CANCELLED)
        throw Interrupted();
    if (status == TONWERK_OUT_OF_MEMORY)
        throw std::bad_alloc();
    if (status != TONWERK_OK)
        throw Failure(sentence + ": " + reasonOf(status) + ".");
}

} // namespace tonwerk::app
