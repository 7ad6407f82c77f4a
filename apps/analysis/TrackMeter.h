// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_ANALYSIS_TRACKMETER_H
#define TONWERK_APPS_ANALYSIS_TRACKMETER_H

#include <cstdint>
#include <span>

#include "analysis/Activity.h"
#include "analysis/Loudness.h"

namespace tonwerk::app
{

/// Measures the levels of a track while it streams by.
class TrackMeter
{
public:
    TrackMeter(unsigned channels, unsigned sampleRate)
        : trackLoudness(channels, sampleRate), trackActivity(channels, sampleRate)
    {
    }

    /// Takes the next samples, interleaved.
    void feed(std::span<const float> samples);

    /// Largest absolute value, 1 being full scale.
    double peak() const { return static_cast<double>(highest); }

    /// Samples that were NaN or infinite.
    std::uint64_t nonFiniteSamples() const { return nonFinite; }

    const Loudness& loudness() const { return trackLoudness; }
    const Activity& activity() const { return trackActivity; }

private:
    Loudness trackLoudness;
    Activity trackActivity;
    float highest = 0.0F;
    std::uint64_t nonFinite = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_ANALYSIS_TRACKMETER_H
