// SPDX-License-Identifier: MIT
#include "report/SongReport.h"

#include <algorithm>
#include <array>
#include <utility>

#include <nlohmann/json.hpp>

#include "report/ReportPage.h"
#include "system/NewFile.h"

namespace tonwerk::app
{

namespace
{

constexpr std::size_t imageWidth = 1280;
constexpr std::size_t waveformHeight = 96;
/// Avoids a division by zero for silence.
constexpr float quietestFullScale = 1e-6F;

/// The song's colour, then the stems' in the order of stemNames; all are readable on white and on black.
constexpr std::array<Color, stemNames.size() + 1> trackColors{{{125, 133, 151, 255},
                                                               {226, 74, 122, 255},
                                                               {230, 118, 36, 255},
                                                               {124, 108, 240, 255},
                                                               {24, 158, 106, 255},
                                                               {208, 58, 58, 255},
                                                               {28, 140, 214, 255},
                                                               {139, 128, 118, 255},
                                                               {20, 150, 160, 255}}};

std::string asCss(Color color)
{
    return "rgb(" + std::to_string(color.red) + " " + std::to_string(color.green) + " " +
           std::to_string(color.blue) + ")";
}

/// All images of a report share one scale, so that they can be compared.
struct Scales
{
    float peak = quietestFullScale;
    double power = static_cast<double>(quietestFullScale) * static_cast<double>(quietestFullScale);

    void include(const TrackImages& track)
    {
        peak = std::max(peak, track.waveform.peak());
        power = std::max(power, track.spectrogram.peakPower());
    }
};

nlohmann::json describe(const TrackImages& track, const Scales& scales, Color color)
{
    return {{"color", asCss(color)},
            {"peak", static_cast<double>(track.waveform.peak())},
            {"rms", track.waveform.rms()},
            {"waveform", track.waveform.draw(imageWidth, waveformHeight, scales.peak, color).dataUri()},
            {"spectrogram", track.spectrogram.draw(imageWidth, scales.power).dataUri()}};
}

} // namespace

SongReport::SongReport(const StemSet& wanted, unsigned sampleRate) : rate(sampleRate), song(sampleRate)
{
    for (std::size_t stem = 0; stem < stemNames.size(); ++stem)
        if (wanted.test(stem))
            stems.try_emplace(stem, sampleRate);
}

void SongReport::observeStems(const std::vector<std::vector<float>>& results)
{
    for (auto& [stem, track] : stems)
        track.feed(results.at(stem));
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
    Scales scales;
    scales.include(song);
    for (const auto& [stem, track] : stems)
        scales.include(track);

    nlohmann::json page{{"name", facts.song},
                        {"model", facts.model},
                        {"license", facts.license},
                        {"version", TONWERK_VERSION},
                        {"sampleRate", rate},
                        {"channels", facts.channels},
                        {"seconds", facts.audioSeconds},
                        {"processingSeconds", facts.processingSeconds},
                        {"nullPeak", facts.nullPeak},
                        {"nonFiniteSamples", facts.nonFiniteSamples},
                        {"lowestFrequency", Spectrogram::lowestFrequency},
                        {"highestFrequency", Spectrogram::highestFrequency(rate)},
                        {"song", describe(song, scales, trackColors.front())},
                        {"stems", nlohmann::json::array()}};
    for (const auto& [stem, track] : stems)
    {
        nlohmann::json description = describe(track, scales, trackColors.at(stem + 1));
        description["name"] = stemNames.at(stem);
        page["stems"].push_back(std::move(description));
    }
    const std::string text = reportPage(page);
    writeNewFile(path, text.data(), text.size());
}

} // namespace tonwerk::app
