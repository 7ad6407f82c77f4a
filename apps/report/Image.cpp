// SPDX-License-Identifier: MIT
#include "report/Image.h"

#include <new>
#include <string_view>

#include <stb/stb_image_write.h>

namespace tonwerk::app
{

namespace
{

constexpr int bytesPerPixel = 4;
static_assert(sizeof(Color) == bytesPerPixel);

/// Base64 of RFC 4648.
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

void append(void* png, void* bytes, int size)
{
    static_cast<std::string*>(png)->append(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
}

} // namespace

std::string Image::dataUri() const
{
    std::string png;
    if (stbi_write_png_to_func(append, &png, static_cast<int>(columns), static_cast<int>(rows), bytesPerPixel,
                               pixels.data(), static_cast<int>(columns) * bytesPerPixel) == 0)
        throw std::bad_alloc(); // the writer's only reason to fail
    return "data:image/png;base64," + base64(png);
}

} // namespace tonwerk::app
