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

#include "report/TrackImages.h"
#include "separation/SeparationObserver.h"
#include "separation/Stems.h"

namespace tonwerk::app
{

/// What a report tells besides what it has seen itself.
struct SongFacts
{
    /// File names for people, as UTF-8.
    std::string song;
    std::string model;
    /// Channels of the song's file, 1 or 2.
    unsigned channels;
    double audioSeconds;
    double processingSeconds;
    /// Largest absolute value of six stems + residual - input, 1 being full scale.
    double nullPeak;
    /// Samples of the song that were NaN or infinite.
    std::uint64_t nonFiniteSamples;
};

/// Makes the report page of a song: watches the song and its stems stream by, and draws them at the end.
/// Takes as much memory for a long song as for a short one.
class SongReport : public SeparationObserver
{
public:
    /// \param wanted the stems that are written to files, which are those that the report shows
    SongReport(const StemSet& wanted, unsigned sampleRate);

    void observeSong(std::span<const float> stereo) override { song.feed(stereo); }
    void observeStems(const std::vector<std::vector<float>>& results) override;

    /// Writes the page, to be called once, after all has been fed. An older file of that name is replaced.
    /// \param path the page's file, in the folder of the stems
    /// \throws Failure if the file cannot be written
    void write(const std::filesystem::path& path, const SongFacts& facts);

private:
    void finish();

    unsigned rate;
    TrackImages song;
    std::map<std::size_t, TrackImages> stems; ///< by their place in stemNames
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_REPORT_SONGREPORT_H
