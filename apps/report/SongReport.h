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

/// Facts that a report shows besides what it observed.
struct SongFacts
{
    /// File names as UTF-8.
    std::string song;
    std::string model;
    /// What the model's passport says, empty if nothing.
    std::string license;
    /// Channels of the song's file, 1 or 2.
    unsigned channels;
    double audioSeconds;
    double processingSeconds;
    /// Largest absolute value of six stems + residual - input, 1 being full scale.
    double nullPeak;
    /// Samples of the song that were NaN or infinite.
    std::uint64_t nonFiniteSamples;
};

/// Makes the report page of a song: observes the song and its stems, and draws them at the end. Its memory
/// does not grow with the song.
class SongReport : public SeparationObserver
{
public:
    /// \param wanted the stems to show, which are those with files
    SongReport(const StemSet& wanted, unsigned sampleRate);

    void observeSong(std::span<const float> stereo) override { song.feed(stereo); }
    void observeStems(const std::vector<std::vector<float>>& results) override;

    /// Writes the page at the end of the song, once.
    /// \param path the page's file, which must not exist, in the folder of the stems
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
