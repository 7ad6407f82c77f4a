// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_ANALYSIS_LOUDNESS_H
#define TONWERK_APPS_ANALYSIS_LOUDNESS_H

#include <memory>
#include <optional>
#include <span>
#include <vector>

#include <ebur128.h>

namespace tonwerk::app
{

/// Measures the integrated loudness of a mono or stereo track as ITU-R BS.1770-4 has it. The loudness of
/// every 0.1 s is kept for the gate that is known last: 0.3 KB for a second of sound.
class Loudness
{
public:
    Loudness(unsigned channels, unsigned sampleRate);

    /// Takes the next samples, interleaved. Those that are not finite count as zero.
    void feed(std::span<const float> samples);

    /// In LUFS.
    /// \return nothing if the track is shorter than 0.4 s or softer than -70 LUFS throughout
    std::optional<double> integrated() const;

private:
    struct Closer
    {
        void operator()(ebur128_state* open) const { ebur128_destroy(&open); }
    };

    std::unique_ptr<ebur128_state, Closer> meter;
    std::vector<float> finite;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_ANALYSIS_LOUDNESS_H
