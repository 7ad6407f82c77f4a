// SPDX-License-Identifier: MIT
#include "audio/PcmEncoder.h"

#include <algorithm>
#include <cmath>

namespace tonwerk::app
{

namespace
{

unsigned bitsOf(SampleFormat format)
{
    return format == SampleFormat::Pcm16 ? 16 : 24;
}

/// The value that full scale, 1, stands for.
double fullScale(unsigned bits)
{
    return std::ldexp(1.0, static_cast<int>(bits) - 1);
}

bool isDithered(unsigned bits)
{
    return bits == 16;
}

} // namespace

std::string_view nameOf(SampleFormat format)
{
    switch (format)
    {
    case SampleFormat::Pcm16:
        return "pcm16";
    case SampleFormat::Pcm24:
        return "pcm24";
    case SampleFormat::Float32:
        break;
    }
    return "float32";
}

double gainToFit(double peak, SampleFormat format)
{
    if (format == SampleFormat::Float32)
        return 1.0;
    const unsigned bits = bitsOf(format);
    // Rounding adds half a step at most, dither a whole one.
    const double room = isDithered(bits) ? 1.5 : 0.5;
    const double highest = (fullScale(bits) - 1.0 - room) / fullScale(bits);
    return peak > highest ? highest / peak : 1.0;
}

PcmEncoder::PcmEncoder(SampleFormat format, double gain)
    : bits(bitsOf(format)), factor(gain * fullScale(bits))
{
}

std::span<const std::int32_t> PcmEncoder::encode(std::span<const float> samples)
{
    const double highest = fullScale(bits) - 1.0;
    const std::int32_t step = 1 << (32 - bits);
    encoded.clear();
    for (const float sample : samples)
    {
        double value = std::isfinite(sample) ? factor * static_cast<double>(sample) : 0.0;
        if (isDithered(bits) && value != 0.0)
            value += dither();
        encoded.push_back(static_cast<std::int32_t>(std::lround(std::clamp(value, -highest - 1.0, highest))) *
                          step);
    }
    return encoded;
}

/// The sum of two uniform numbers, in steps: from -1 to 1.
double PcmEncoder::dither()
{
    constexpr double range = static_cast<double>(std::minstd_rand::max());
    const double first = static_cast<double>(noise()) / range;
    return first + static_cast<double>(noise()) / range - 1.0;
}

} // namespace tonwerk::app
