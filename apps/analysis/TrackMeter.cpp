// SPDX-License-Identifier: MIT
#include "analysis/TrackMeter.h"

#include <algorithm>
#include <cmath>

namespace tonwerk::app
{

void TrackMeter::feed(std::span<const float> samples)
{
    trackLoudness.feed(samples);
    trackActivity.feed(samples);
    for (const float sample : samples)
    {
        if (std::isfinite(sample))
            highest = std::max(highest, std::abs(sample));
        else
            ++nonFinite;
    }
}

} // namespace tonwerk::app
