// SPDX-License-Identifier: MIT
#include "report/Waveform.h"

#include <algorithm>
#include <cmath>

namespace tonwerk::app
{

namespace
{

/// More than an image has pixels: at least half of the columns are in use after some seconds of a song.
constexpr std::size_t maxColumns = 4096;
constexpr std::uint64_t firstFramesPerColumn = 32;
constexpr std::uint8_t paleAlpha = 115;

/// The row, from the top and with fractions, in which a value lies.
double rowOf(double value, double fullScale, std::size_t height)
{
    const double half = static_cast<double>(height) / 2.0;
    return half - std::clamp(value / fullScale, -1.0, 1.0) * half;
}

/// Colours the rows between two values, at least one.
void paint(Image& image, std::size_t pixel, double top, double bottom, Color color)
{
    const auto last = static_cast<double>(image.height() - 1);
    const auto first = static_cast<std::size_t>(std::clamp(std::floor(top), 0.0, last));
    const auto end = static_cast<std::size_t>(std::clamp(std::ceil(bottom), 0.0, last + 1.0));
    for (std::size_t row = first; row < std::max(end, first + 1); ++row)
        image.at(pixel, row) = color;
}

} // namespace

void Waveform::Column::merge(const Column& other)
{
    lowest = std::min(lowest, other.lowest);
    highest = std::max(highest, other.highest);
    squares += other.squares;
    samples += other.samples;
}

double Waveform::Column::rms() const
{
    return samples > 0 ? std::sqrt(squares / static_cast<double>(samples)) : 0.0;
}

Waveform::Waveform() : framesPerColumn(firstFramesPerColumn)
{
    columns.reserve(maxColumns);
}

void Waveform::feed(std::span<const float> stereo)
{
    for (std::size_t first = 0; first + 1 < stereo.size(); first += 2)
    {
        if (frames == columns.size() * framesPerColumn)
        {
            if (columns.size() == maxColumns)
                mergePairs();
            columns.emplace_back();
        }
        Column& column = columns.back();
        for (const float sample : stereo.subspan(first, 2))
        {
            const float value = std::isfinite(sample) ? sample : 0.0F;
            column.lowest = std::min(column.lowest, value);
            column.highest = std::max(column.highest, value);
            column.squares += static_cast<double>(value) * static_cast<double>(value);
        }
        column.samples += 2;
        ++frames;
    }
}

void Waveform::mergePairs()
{
    for (std::size_t pair = 0; pair < columns.size() / 2; ++pair)
    {
        columns[pair] = columns[2 * pair];
        columns[pair].merge(columns[2 * pair + 1]);
    }
    columns.resize(columns.size() / 2);
    framesPerColumn *= 2;
}

float Waveform::peak() const
{
    float largest = 0.0F;
    for (const Column& column : columns)
        largest = std::max({largest, -column.lowest, column.highest});
    return largest;
}

double Waveform::rms() const
{
    Column all;
    for (const Column& column : columns)
        all.merge(column);
    return all.rms();
}

Waveform::Column Waveform::between(std::size_t pixel, std::size_t width) const
{
    const double columnsPerPixel =
        static_cast<double>(frames) / static_cast<double>(framesPerColumn) / static_cast<double>(width);
    const auto first = static_cast<std::size_t>(static_cast<double>(pixel) * columnsPerPixel);
    const auto last = static_cast<std::size_t>(static_cast<double>(pixel + 1) * columnsPerPixel);
    Column result;
    // Adjacent pixels share the column at their border, so that no peak falls between them.
    for (std::size_t column = first; column <= last && column < columns.size(); ++column)
        result.merge(columns[column]);
    return result;
}

Image Waveform::draw(std::size_t width, std::size_t height, float fullScale, Color color) const
{
    Image image(width, height);
    const double scale = static_cast<double>(fullScale);
    const Color pale{color.red, color.green, color.blue, paleAlpha};
    for (std::size_t pixel = 0; pixel < width; ++pixel)
    {
        const Column column = between(pixel, width);
        const double rms = column.rms();
        paint(image, pixel, rowOf(static_cast<double>(column.highest), scale, height),
              rowOf(static_cast<double>(column.lowest), scale, height), pale);
        paint(image, pixel, rowOf(rms, scale, height), rowOf(-rms, scale, height), color);
    }
    return image;
}

} // namespace tonwerk::app
