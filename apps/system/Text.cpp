// SPDX-License-Identifier: MIT
#include "system/Text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <utility>

namespace tonwerk::app
{

namespace
{

/// A character of a UTF-8 text.
struct Character
{
    std::uint32_t code;
    std::size_t length; ///< in bytes; 0 if these are no UTF-8
};

Character characterAt(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80)
        return {first, 1};
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length)
        return {first, 0};
    std::uint32_t code = first & (0x7FU >> length);
    for (const char character : text.substr(1, length - 1))
    {
        const auto byte = static_cast<unsigned char>(character);
        if ((byte & 0xC0U) != 0x80)
            return {first, 0};
        code = code << 6U | (byte & 0x3FU);
    }
    constexpr std::array<std::uint32_t, 3> lowest{0x80, 0x800,
                                                  0x10000}; // shorter ones have one notation only
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    return {code, code < lowest.at(length - 2) || code > 0x10FFFF || isSurrogate ? 0 : length};
}

/// Control characters, ends of lines, and marks of the direction of writing (Unicode Annex 9).
bool isControl(std::uint32_t code)
{
    constexpr std::array<std::pair<std::uint32_t, std::uint32_t>, 6> ranges{
        {{0x00, 0x1F}, {0x7F, 0x9F}, {0x61C, 0x61C}, {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069}}};
    return std::any_of(ranges.begin(), ranges.end(),
                       [code](const auto& range) { return code >= range.first && code <= range.second; });
}

/// \param digits how many hexadecimal ones
std::string asNumber(const char* mark, std::uint32_t number, unsigned digits)
{
    std::string text = mark;
    for (unsigned digit = digits; digit-- > 0;)
        text += "0123456789ABCDEF"[number >> (4 * digit) & 0xFU];
    return text;
}

std::string withoutControls(const std::string& utf8, bool keepLines)
{
    std::string result;
    for (std::string_view rest = utf8; !rest.empty();)
    {
        const Character character = characterAt(rest);
        const std::size_t length = std::max<std::size_t>(character.length, 1);
        if (character.length == 0)
            result += asNumber("\\x", character.code, 2);
        else if (isControl(character.code) && !(keepLines && character.code == '\n'))
            result += asNumber("\\u", character.code, 4);
        else
            result += rest.substr(0, length);
        rest.remove_prefix(length);
    }
    return result;
}

} // namespace

std::filesystem::path toPath(const std::string& utf8)
{
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

std::string toText(const std::filesystem::path& path)
{
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

std::string printable(const std::string& utf8)
{
    return withoutControls(utf8, false);
}

std::string printableJson(const std::string& utf8)
{
    return withoutControls(utf8, true);
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
