// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_SEPARATIONOBSERVER_H
#define TONWERK_APPS_SEPARATION_SEPARATIONOBSERVER_H

#include <span>
#include <vector>

namespace tonwerk::app
{

/// Sees a song, its stems and its tracks while they stream by: block by block, on the thread that separates.
/// The stems of a block arrive some blocks after it.
class SeparationObserver
{
public:
    SeparationObserver() = default;
    virtual ~SeparationObserver() = default;

    SeparationObserver(const SeparationObserver&) = delete;
    SeparationObserver& operator=(const SeparationObserver&) = delete;

    /// \param stereo the next samples of the song, interleaved
    virtual void observeSong(std::span<const float> /*stereo*/) {}

    /// \param stems the next ones, in the order of stemNames: eight of equal length, interleaved stereo
    virtual void observeStems(const std::vector<std::vector<float>>& /*stems*/) {}

    /// \param tracks the next samples of each track, interleaved, of equal length
    virtual void observeTracks(const std::vector<std::vector<float>>& /*tracks*/) {}
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_SEPARATIONOBSERVER_H
