// SPDX-License-Identifier: MIT
#include "report/Waveform.h"

#include <algorithm>
#include <cmath>

namespace tonwerk::app
{

namespace
{

/// So many that a song of 25 minutes can be seen in steps of 25 ms.
constexpr std::size_t maxColumns = 65536;

/// A value of -1 to 1 as a signed byte, away from zero.
char asByte(double value)
{
    constexpr double full = 127.0;
    const double rounded = value < 0.0 ? std::floor(full * value) : std::ceil(full * value);
    return static_cast<char>(static_cast<std::int8_t>(std::clamp(rounded, -full, full)));
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

std::string Waveform::columnBytes() const
{
    const double scale = peak() > 0.0F ? 1.0 / static_cast<double>(peak()) : 0.0;
    std::string bytes;
    bytes.reserve(3 * columns.size());
    for (const Column& column : columns)
    {
        bytes += asByte(scale * static_cast<double>(column.lowest));
        bytes += asByte(scale * static_cast<double>(column.highest));
        bytes += asByte(scale * column.rms());
    }
    return bytes;
}

} // namespace tonwerk::app
