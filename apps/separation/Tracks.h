// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_TRACKS_H
#define TONWERK_APPS_SEPARATION_TRACKS_H

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "separation/Stems.h"

namespace tonwerk::app
{

/// Factors for the six model stems and the residual, which add up to the song.
using StemGains = std::array<double, modelStemCount + 1>;

/// One file to write: a stem, or a mixture of stems.
struct Track
{
    /// The file's name without extension.
    std::string name;
    /// The stem's place in stemNames, if this is a stem.
    std::optional<std::size_t> stem;
    /// The stems' levels in a mixture.
    StemGains gains{};
};

/// The names of these tracks, in their order.
std::vector<std::string> namesOf(const std::vector<Track>& tracks);

/// A track for each of these stems.
std::vector<Track> stemTracks(const StemSet& stems);

/// The song without its vocals.
Track karaokeTrack();

/// The mixture that a text like "vocals=-inf,piano=-6dB" describes: levels of stems and residual in dB. Stems
/// that it does not name keep their level.
/// \throws UsageError if the text makes no sense
Track practiceTrack(const std::string& text);

/// The stems to ask of the model for these tracks. At least one, even if the tracks need none.
StemSet stemsToAsk(const std::vector<Track>& tracks);

/// Mixes the tracks of a song from its stems.
class TrackMixer
{
public:
    /// \param channels of the tracks; 1 gives the mean of left and right
    TrackMixer(std::vector<Track> wanted, unsigned channels);

    /// \param stems in the order of stemNames, interleaved stereo
    /// \return the samples of each track, interleaved, valid until the next call
    const std::vector<std::vector<float>>& mix(const std::vector<std::vector<float>>& stems);

private:
    std::vector<Track> tracks;
    unsigned channelCount;
    std::vector<std::vector<float>> samples;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_TRACKS_H
