// SPDX-License-Identifier: MIT
#include "report/Base64.h"

#include <cstddef>
#include <cstdint>

namespace tonwerk::app
{

std::string base64(std::string_view bytes)
{
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t start = 0; start < bytes.size(); start += 3)
    {
        const std::string_view group = bytes.substr(start, 3);
        std::uint32_t bits = 0;
        for (std::size_t byte = 0; byte < 3; ++byte)
            bits = bits << 8U | (byte < group.size() ? static_cast<unsigned char>(group[byte]) : 0U);
        for (std::size_t digit = 0; digit < 4; ++digit)
            text += digit <= group.size() ? digits[bits >> (18 - 6 * digit) & 63U] : '=';
    }
    return text;
}

} // namespace tonwerk::app
