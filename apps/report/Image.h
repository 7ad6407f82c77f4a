// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_REPORT_IMAGE_H
#define TONWERK_APPS_REPORT_IMAGE_H

#include <cstddef>
#include <string>
#include <vector>

#include "separation/StemColors.h"

namespace tonwerk::app
{

/// An image of pixels in rows from the top, transparent at first.
class Image
{
public:
    Image(std::size_t width, std::size_t height) : columns(width), rows(height), pixels(width * height) {}

    std::size_t width() const { return columns; }
    std::size_t height() const { return rows; }

    /// The pixel in a column from the left and a row from the top.
    Color& at(std::size_t column, std::size_t row) { return pixels[row * columns + column]; }

    /// The image as a data URI: a PNG in Base64.
    /// \throws std::bad_alloc if there is not enough memory
    std::string dataUri() const;

private:
    std::size_t columns;
    std::size_t rows;
    std::vector<Color> pixels;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_REPORT_IMAGE_H
