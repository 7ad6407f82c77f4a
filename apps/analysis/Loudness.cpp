// SPDX-License-Identifier: MIT
#include "analysis/Loudness.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <new>

namespace tonwerk::app
{

Loudness::Loudness(unsigned channels, unsigned sampleRate)
    : meter(ebur128_init(channels, sampleRate, EBUR128_MODE_I))
{
    if (!meter)
        throw std::bad_alloc();
}

void Loudness::feed(std::span<const float> samples)
{
    finite.clear();
    std::transform(samples.begin(), samples.end(), std::back_inserter(finite),
                   [](float sample) { return std::isfinite(sample) ? sample : 0.0F; });
    if (ebur128_add_frames_float(meter.get(), finite.data(), finite.size() / meter->channels) !=
        EBUR128_SUCCESS)
        throw std::bad_alloc();
}

std::optional<double> Loudness::integrated() const
{
    double lufs = 0.0;
    if (ebur128_loudness_global(meter.get(), &lufs) != EBUR128_SUCCESS || !std::isfinite(lufs))
        return std::nullopt;
    return lufs;
}

} // namespace tonwerk::app
