// SPDX-License-Identifier: MIT
#include "pipeline/RunGeometry.h"

#include <algorithm>

std::size_t RunGeometry::firstHops(std::size_t overlap) const
{
    return std::max({held() + step + 1, held() + overlap, overlap + 1});
}

// A run completes what lies under no frame but those that it gives out. Without lookahead and blend the first
// run is later than that, because a mirror image is as long as a frame.
std::size_t RunGeometry::latency(std::size_t overlap, std::size_t hop) const
{
    return std::max(step + held() + overlap - 1, firstHops(overlap)) * hop - 1;
}

std::string RunGeometry::fault(std::size_t segmentFrames) const
{
    // The frames at the segment's two edges, and one in which the last run's lead-out may begin.
    const std::size_t most = segmentFrames - 3;
    if (step == 0)
        return "The step must be at least 1 frame.";
    if (blend > step)
        return "The blend of " + std::to_string(blend) + " frames is longer than the step of " +
               std::to_string(step) + ": a frame would be faded twice.";
    if (step > most || lookahead > most || step + held() > most)
        return "Step, lookahead and blend come to " + std::to_string(step + held()) +
               " frames, and the model has room for " + std::to_string(most) + ".";
    return {};
}
