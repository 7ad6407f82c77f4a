// SPDX-License-Identifier: MIT
#include "report/Image.h"

#include <new>

#include <stb/stb_image_write.h>

#include "report/Base64.h"

namespace tonwerk::app
{

namespace
{

constexpr int bytesPerPixel = 4;
static_assert(sizeof(Color) == bytesPerPixel);

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
