// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_ANALYSIS_ACTIVITY_H
#define TONWERK_APPS_ANALYSIS_ACTIVITY_H

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace tonwerk::app
{

/// Finds the active parts of a track, where the RMS value of 50 ms exceeds -50 dBFS. Pauses under half a
/// second count as active.
class Activity
{
public:
    Activity(unsigned channels, unsigned sampleRate);

    /// Takes the next samples, interleaved. Those that are not finite count as zero.
    void feed(std::span<const float> samples);

    /// The active ranges: begin and end in seconds, sorted and disjoint.
    std::vector<std::pair<double, double>> ranges() const;

private:
    void endWindow();
    void note(std::uint64_t begin, std::uint64_t end);

    unsigned channelCount;
    unsigned rate;
    std::uint64_t windowFrames;
    std::uint64_t frames = 0;
    std::uint64_t framesInWindow = 0;
    double squares = 0.0;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> sounding; ///< in frames
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_ANALYSIS_ACTIVITY_H
