// SPDX-License-Identifier: MIT
#include "report/PlayerSegments.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <system_error>
#include <utility>

#include <nlohmann/json.hpp>

#include "audio/FlacFile.h"
#include "report/Base64.h"
#include "system/Failure.h"
#include "system/NewFile.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

/// Long enough that files are few, and short enough that sound comes soon after a jump.
constexpr std::size_t segmentSeconds = 8;
constexpr unsigned nominalRate = 44100;

} // namespace

std::size_t PlayerSegments::segmentFrames(unsigned sampleRate)
{
    return segmentSeconds * sampleRate;
}

PlayerSegments::PlayerSegments(std::filesystem::path path, std::size_t tracks, unsigned channels,
                               unsigned sampleRate)
    : folder(std::move(path)), channelCount(channels), segmentSamples(segmentFrames(sampleRate) * channels),
      tracks(tracks)
{
    std::error_code failure;
    std::filesystem::create_directory(folder, failure);
    if (failure)
        throw Failure("Cannot make the folder " + quoted(folder) + ": " + asReason(failure.message()) + ".");
}

void PlayerSegments::feed(std::size_t track, std::span<const float> stereo)
{
    Track& fed = tracks.at(track);
    const auto finite = [](float sample) { return std::isfinite(sample) ? sample : 0.0F; };
    for (std::size_t first = 0; first + 1 < stereo.size(); first += 2)
    {
        const float left = finite(stereo[first]);
        const float right = finite(stereo[first + 1]);
        if (channelCount == 2)
            fed.pending.insert(fed.pending.end(), {left, right});
        else
            fed.pending.push_back(0.5F * (left + right));
        if (fed.pending.size() == segmentSamples)
            encode(fed);
    }
    writeComplete();
}

void PlayerSegments::encode(Track& track)
{
    float scale = 1.0F;
    bool isSilent = true;
    for (const float sample : track.pending)
    {
        scale = std::max(scale, std::abs(sample));
        isSilent = isSilent && sample == 0.0F;
    }
    constexpr float lowest = std::numeric_limits<std::int16_t>::min();
    constexpr float highest = std::numeric_limits<std::int16_t>::max();
    std::vector<std::int16_t> samples;
    samples.reserve(track.pending.size());
    for (const float sample : track.pending)
        samples.push_back(
            static_cast<std::int16_t>(std::lround(std::clamp(sample / scale * -lowest, lowest, highest))));
    track.pending.clear();
    std::string& text = track.encoded.emplace_back("null");
    if (!isSilent)
        text =
            nlohmann::json{static_cast<double>(scale), base64(flacFile(samples, channelCount, nominalRate))}
                .dump();
}

/// Writes the segments of which all tracks are there.
void PlayerSegments::writeComplete()
{
    while (
        std::all_of(tracks.begin(), tracks.end(), [](const Track& track) { return !track.encoded.empty(); }))
    {
        std::string script = "stemSegment(" + std::to_string(written) + ",[";
        for (std::size_t track = 0; track < tracks.size(); ++track)
        {
            script.append(track > 0 ? "," : "").append(tracks[track].encoded.front());
            tracks[track].encoded.pop_front();
        }
        script += "]);\n";
        writeNewFile(folder / (std::to_string(written) + ".js"), script.data(), script.size());
        ++written;
    }
}

void PlayerSegments::finish()
{
    for (Track& track : tracks)
        if (!track.pending.empty())
            encode(track);
    writeComplete();
}

} // namespace tonwerk::app
