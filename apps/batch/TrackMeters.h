// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_BATCH_TRACKMETERS_H
#define TONWERK_APPS_BATCH_TRACKMETERS_H

#include <cstddef>
#include <vector>

#include "analysis/TrackMeter.h"
#include "separation/SeparationObserver.h"

namespace tonwerk::app
{

/// Measures each track of a separation.
class TrackMeters : public SeparationObserver
{
public:
    /// \param tracks number of tracks
    TrackMeters(std::size_t tracks, unsigned channels, unsigned sampleRate);

    void observeTracks(const std::vector<std::vector<float>>& tracks) override;

    /// The measurements of one track so far.
    const TrackMeter& of(std::size_t track) const { return meters.at(track); }

    /// Largest absolute value of all tracks, 1 being full scale.
    double peak() const;

private:
    std::vector<TrackMeter> meters;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_BATCH_TRACKMETERS_H
