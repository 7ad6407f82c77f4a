// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_STEMSINK_H
#define TONWERK_APPS_AUDIO_STEMSINK_H

#include <vector>

namespace tonwerk::app
{

/// Writes the tracks of a song block by block.
class StemSink
{
public:
    StemSink() = default;
    virtual ~StemSink() = default;

    StemSink(const StemSink&) = delete;
    StemSink& operator=(const StemSink&) = delete;

    /// Takes the next samples of all tracks, interleaved and of equal length.
    /// \throws Failure if that is not possible
    virtual void write(const std::vector<std::vector<float>>& tracks) = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_STEMSINK_H
