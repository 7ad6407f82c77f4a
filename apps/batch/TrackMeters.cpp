// SPDX-License-Identifier: MIT
#include "batch/TrackMeters.h"

#include <algorithm>

namespace tonwerk::app
{

TrackMeters::TrackMeters(std::size_t tracks, unsigned channels, unsigned sampleRate)
{
    while (meters.size() < tracks)
        meters.emplace_back(channels, sampleRate);
}

void TrackMeters::observeTracks(const std::vector<std::vector<float>>& tracks)
{
    for (std::size_t track = 0; track < meters.size(); ++track)
        meters[track].feed(tracks.at(track));
}

double TrackMeters::peak() const
{
    double highest = 0.0;
    for (const TrackMeter& meter : meters)
        highest = std::max(highest, meter.peak());
    return highest;
}

} // namespace tonwerk::app
