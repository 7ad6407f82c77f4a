// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_REPORT_SONGREPORT_H
#define TONWERK_APPS_REPORT_SONGREPORT_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "report/PlayerSegments.h"
#include "report/TrackImages.h"
#include "separation/SeparationObserver.h"
#include "separation/Tracks.h"

namespace tonwerk::app
{

/// Facts that a report shows besides what it observed.
struct SongFacts
{
    /// File names as UTF-8.
    std::string song;
    /// Tells songs apart, as a hash does: the page remembers settings under it.
    std::string id;
    std::string model;
    /// What the model's passport says, empty if nothing.
    std::string license;
    std::uint64_t frames;
    double audioSeconds;
    double processingSeconds;
    /// Largest absolute value of six stems + residual - input, 1 being full scale.
    double nullPeak;
    /// Samples of the song that were NaN or infinite.
    std::uint64_t nonFiniteSamples;
};

/// Makes the report page of a song: observes the song and its stems, writes their sound for the page's
/// player, and draws them at the end. Its memory does not grow with the song.
class SongReport : public SeparationObserver
{
public:
    /// \param playerFolder to be made, for the sound that the page plays from the folder "player" beside it
    /// \param tracks of the song: the page shows the stems and offers the mixtures
    /// \param channels of the song's file, 1 or 2
    /// \throws Failure if the player's folder cannot be made
    SongReport(const std::filesystem::path& playerFolder, const std::vector<Track>& tracks, unsigned channels,
               unsigned sampleRate);

    void observeSong(std::span<const float> stereo) override;
    void observeStems(const std::vector<std::vector<float>>& results) override;

    /// Writes the page and completes the player's files at the end of the song, once.
    /// \param path the page's file, which must not exist
    /// \throws Failure if a file cannot be written
    void write(const std::filesystem::path& path, const SongFacts& facts);

private:
    void finish();

    std::vector<Track> mixtures;
    unsigned channels;
    unsigned rate;
    TrackImages song;
    std::map<std::size_t, TrackImages> stems; ///< by their place in stemNames
    PlayerSegments player;                    ///< the song's sound, then the stems' in the order of the map
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_REPORT_SONGREPORT_H
