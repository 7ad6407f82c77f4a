// SPDX-License-Identifier: MIT
#include "system/Text.h"

#include <cmath>
#include <cstdio>

namespace tonwerk::app
{

std::filesystem::path toPath(const std::string& utf8)
{
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

std::string toText(const std::filesystem::path& path)
{
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

std::string quoted(const std::filesystem::path& path)
{
    return '"' + toText(path) + '"';
}

std::string asReason(const std::string& message)
{
    constexpr const char* blanks = " \t\r\n";
    std::string reason;
    for (const char character : message)
    {
        const bool blank = std::string_view(blanks).find(character) != std::string_view::npos;
        if (!blank)
            reason += character;
        else if (!reason.empty() && reason.back() != ' ')
            reason += ' ';
    }
    reason.erase(reason.find_last_not_of(" .") + 1);
    return reason;
}

std::string asClock(double seconds)
{
    const auto whole = static_cast<long long>(std::llround(seconds));
    const auto hours = whole / 3600;
    const auto minutes = whole / 60 % 60;
    char text[32]; // NOLINT(modernize-avoid-c-arrays): what snprintf fills
    if (hours > 0)
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", hours, minutes, whole % 60);
    else
        std::snprintf(text, sizeof text, "%lld:%02lld", minutes, whole % 60);
    return text;
}

} // namespace tonwerk::app
