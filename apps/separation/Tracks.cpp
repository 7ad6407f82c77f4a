// SPDX-License-Identifier: MIT
#include "separation/Tracks.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <sstream>
#include <string_view>
#include <utility>

#include "system/Failure.h"

namespace tonwerk::app
{

namespace
{

/// The factor that a text like "-6dB", "-6" or "-inf" stands for.
double gainOf(const std::string& entry, std::string_view text)
{
    if (text.size() > 2 && (text.substr(text.size() - 2) == "dB" || text.substr(text.size() - 2) == "db"))
        text.remove_suffix(2);
    if (text == "-inf")
        return 0.0;
    if (!text.empty() && text.front() == '+')
        text.remove_prefix(1);
    constexpr double loudest = 40.0;
    double decibels = 0.0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), decibels);
    if (failure != std::errc() || end != text.data() + text.size() || !std::isfinite(decibels) ||
        decibels > loudest)
        throw UsageError("--mix cannot read \"" + entry +
                         "\": a level is a number of decibels up to 40 (-6dB) or -inf.");
    return std::pow(10.0, decibels / 20.0);
}

std::size_t partNamed(const std::string& entry, std::string_view name)
{
    const std::string_view* const end = stemNames.data() + modelStemCount + 1;
    const std::string_view* const found = std::find(stemNames.data(), end, name);
    if (found == end)
        throw UsageError("--mix cannot read \"" + entry + "\": it takes STEM=LEVEL, where STEM is one of " +
                         listOfStems() + ", but not mix.");
    return static_cast<std::size_t>(found - stemNames.data());
}

Track mixtureOf(std::string name, const StemGains& gains)
{
    return {std::move(name), std::nullopt, gains};
}

StemGains unchanged()
{
    StemGains gains;
    gains.fill(1.0);
    return gains;
}

/// Sums the weighted stems in double precision.
void mixStems(const StemGains& gains, const std::vector<std::vector<float>>& stems,
              std::vector<float>& result)
{
    result.resize(stems.front().size());
    for (std::size_t sample = 0; sample < result.size(); ++sample)
    {
        double sum = 0.0;
        for (std::size_t stem = 0; stem < gains.size(); ++stem)
            sum += gains[stem] * static_cast<double>(stems[stem][sample]);
        result[sample] = static_cast<float>(sum);
    }
}

void makeMono(std::vector<float>& samples)
{
    const std::size_t frames = samples.size() / 2;
    for (std::size_t frame = 0; frame < frames; ++frame)
        samples[frame] = 0.5F * samples[2 * frame] + 0.5F * samples[2 * frame + 1];
    samples.resize(frames);
}

} // namespace

std::vector<std::string> namesOf(const std::vector<Track>& tracks)
{
    std::vector<std::string> names;
    names.reserve(tracks.size());
    for (const Track& track : tracks)
        names.push_back(track.name);
    return names;
}

std::vector<Track> stemTracks(const StemSet& stems)
{
    std::vector<Track> tracks;
    for (std::size_t stem = 0; stem < stemNames.size(); ++stem)
        if (stems.test(stem))
            tracks.push_back({std::string(stemNames.at(stem)), stem, {}});
    return tracks;
}

Track karaokeTrack()
{
    StemGains gains = unchanged();
    gains.front() = 0.0;
    return mixtureOf("karaoke", gains);
}

Track practiceTrack(const std::string& text)
{
    StemGains gains = unchanged();
    std::istringstream list(text);
    for (std::string entry; std::getline(list, entry, ',');)
    {
        const std::size_t equals = std::min(entry.find('='), entry.size());
        const std::size_t part = partNamed(entry, std::string_view(entry).substr(0, equals));
        gains.at(part) = gainOf(entry, std::string_view(entry).substr(std::min(equals + 1, entry.size())));
    }
    return mixtureOf("practice_mix", gains);
}

StemSet stemsToAsk(const std::vector<Track>& tracks)
{
    StemSet asked;
    for (const Track& track : tracks)
    {
        if (track.stem && *track.stem >= modelStemCount)
            return StemSet((1U << modelStemCount) - 1); // residual and mix need all six
        if (track.stem)
            asked.set(*track.stem);
        for (std::size_t stem = 0; stem < modelStemCount && !track.stem; ++stem)
            // What is not asked for stays in the residual, so stems of the residual's level need not be
            // asked.
            if (track.gains[stem] != track.gains.back()) // NOLINT(clang-diagnostic-float-equal): not computed
                asked.set(stem);
    }
    if (asked.none())
        asked.set(0);
    return asked;
}

TrackMixer::TrackMixer(std::vector<Track> wanted, unsigned channels)
    : tracks(std::move(wanted)), channelCount(channels), samples(tracks.size())
{
}

const std::vector<std::vector<float>>& TrackMixer::mix(const std::vector<std::vector<float>>& stems)
{
    for (std::size_t track = 0; track < tracks.size(); ++track)
    {
        if (tracks[track].stem)
            samples[track] = stems.at(*tracks[track].stem);
        else
            mixStems(tracks[track].gains, stems, samples[track]);
        if (channelCount == 1)
            makeMono(samples[track]);
    }
    return samples;
}

} // namespace tonwerk::app
