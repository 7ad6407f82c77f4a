// SPDX-License-Identifier: MIT
#include "report/SongReport.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include <nlohmann/json.hpp>

#include "report/Base64.h"
#include "report/ReportPage.h"
#include "system/NewFile.h"

namespace tonwerk::app
{

namespace
{

constexpr std::size_t imageWidth = 1280;
/// Avoids a division by zero for silence.
constexpr double quietestPower = 1e-12;

std::string asCss(Color color)
{
    return "rgb(" + std::to_string(color.red) + " " + std::to_string(color.green) + " " +
           std::to_string(color.blue) + ")";
}

nlohmann::json describe(const TrackImages& track, double brightestPower, Color color)
{
    return {{"color", asCss(color)},
            {"peak", static_cast<double>(track.waveform.peak())},
            {"rms", track.waveform.rms()},
            {"outline",
             {{"framesPerColumn", track.waveform.columnFrames()},
              {"columns", base64(track.waveform.columnBytes())}}},
            {"spectrogram", track.spectrogram.draw(imageWidth, brightestPower).dataUri()}};
}

/// A mixture's levels in dB; null is silence. Those of 0 dB are left out.
nlohmann::json describe(const Track& mixture)
{
    nlohmann::json levels = nlohmann::json::object();
    for (std::size_t stem = 0; stem < mixture.gains.size(); ++stem)
    {
        const double gain = static_cast<double>(mixture.gains.at(stem));
        if (gain == 1.0)
            continue;
        nlohmann::json& level = levels[stemNames.at(stem)];
        if (gain > 0.0)
            level = std::round(20.0 * std::log10(gain) * 100.0) / 100.0;
    }
    return {{"name", mixture.name}, {"levels", levels}};
}

std::map<std::size_t, TrackImages> imagesOf(const std::vector<Track>& tracks, unsigned sampleRate)
{
    std::map<std::size_t, TrackImages> images;
    for (const Track& track : tracks)
        if (track.stem)
            images.try_emplace(*track.stem, sampleRate);
    return images;
}

} // namespace

SongReport::SongReport(const std::filesystem::path& playerFolder, const std::vector<Track>& tracks,
                       unsigned channels, unsigned sampleRate)
    : channels(channels), rate(sampleRate), song(sampleRate), stems(imagesOf(tracks, sampleRate)),
      player(playerFolder, stems.size() + 1, channels, sampleRate)
{
    std::copy_if(tracks.begin(), tracks.end(), std::back_inserter(mixtures),
                 [](const Track& track) { return !track.stem; });
}

void SongReport::observeSong(std::span<const float> stereo)
{
    song.feed(stereo);
    player.feed(0, stereo);
}

void SongReport::observeStems(const std::vector<std::vector<float>>& results)
{
    std::size_t place = 1;
    for (auto& [stem, track] : stems)
    {
        track.feed(results.at(stem));
        player.feed(place++, results.at(stem));
    }
}

void SongReport::finish()
{
    song.spectrogram.finish();
    for (auto& [stem, track] : stems)
        track.spectrogram.finish();
}

void SongReport::write(const std::filesystem::path& path, const SongFacts& facts)
{
    finish();
    // All spectrograms share one scale, so that they can be compared.
    double brightest = std::max(quietestPower, song.spectrogram.peakPower());
    for (const auto& [stem, track] : stems)
        brightest = std::max(brightest, track.spectrogram.peakPower());

    nlohmann::json page{{"name", facts.song},
                        {"id", facts.id},
                        {"model", facts.model},
                        {"license", facts.license},
                        {"version", TONWERK_VERSION},
                        {"sampleRate", rate},
                        {"channels", channels},
                        {"frames", facts.frames},
                        {"segmentFrames", PlayerSegments::segmentFrames(rate)},
                        {"seconds", facts.audioSeconds},
                        {"processingSeconds", facts.processingSeconds},
                        {"nullPeak", facts.nullPeak},
                        {"nonFiniteSamples", facts.nonFiniteSamples},
                        {"lowestFrequency", Spectrogram::lowestFrequency},
                        {"highestFrequency", Spectrogram::highestFrequency(rate)},
                        {"song", describe(song, brightest, songColor)},
                        {"stems", nlohmann::json::array()},
                        {"mixes", nlohmann::json::array()}};
    for (const auto& [stem, track] : stems)
    {
        nlohmann::json description = describe(track, brightest, stemColors.at(stem));
        description["name"] = stemNames.at(stem);
        page["stems"].push_back(std::move(description));
    }
    for (const Track& mixture : mixtures)
        page["mixes"].push_back(describe(mixture));
    player.finish();
    const std::string text = reportPage(page);
    writeNewFile(path, text.data(), text.size());
}

} // namespace tonwerk::app
