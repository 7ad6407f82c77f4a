// SPDX-License-Identifier: MIT
#include "batch/Receipt.h"

#include <cmath>
#include <cstddef>
#include <fstream>
#include <system_error>

#include <nlohmann/json.hpp>

#include "system/AtomicFile.h"
#include "system/BinaryFile.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

/// Keeps the order of its members.
using Json = nlohmann::ordered_json;

/// Null for silence: JSON has no infinity.
Json asDecibels(double amplitude)
{
    return amplitude > 0.0 ? Json(20.0 * std::log10(amplitude)) : Json(nullptr);
}

Json gainsOf(const Track& track)
{
    Json gains;
    for (std::size_t stem = 0; stem < track.gains.size(); ++stem)
        gains[std::string(stemNames.at(stem))] = asDecibels(track.gains.at(stem));
    return gains;
}

/// The settings that decide about the files' content.
Json describe(const OutputSettings& settings)
{
    Json description{{"format", nameOf(settings.format)},
                     {"stems", Json::array()},
                     {"mixtures", Json::object()},
                     {"report", settings.report}};
    for (const Track& track : settings.tracks)
    {
        if (track.stem)
            description["stems"].push_back(track.name);
        else
            description["mixtures"][track.name] = gainsOf(track);
    }
    return description;
}

Json describe(const TrackMeter& meter, const Track& track, double gain)
{
    const auto loudness = meter.loudness().integrated();
    return {{"file", track.name + ".wav"},
            {"peak_dbfs", asDecibels(gain * meter.peak())},
            {"loudness_lufs", loudness ? Json(*loudness + 20.0 * std::log10(gain)) : Json(nullptr)},
            {"active_seconds", meter.activity().ranges()},
            {"non_finite_samples", meter.nonFiniteSamples()}};
}

/// The model, with what its file says of the network; null if it says nothing.
Json describe(const ModelFacts& model)
{
    Json passport;
    for (const char* entry : {"name", "license", "source", "authors", "training_data", "stems", "rows",
                              "converted_from", "notes"})
        if (!model.passport.text(entry).empty())
            passport[entry] = model.passport.text(entry);
    return {{"file", model.name}, {"sha256", model.sha256}, {"passport", passport}};
}

Json readReceipt(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    constexpr bool throwOnError = false;
    return Json::parse(file, nullptr, throwOnError);
}

/// The text at a JSON pointer such as "/input/sha256", or an empty one.
std::string textAt(const Json& receipt, const char* place)
{
    const Json::json_pointer pointer(place);
    return receipt.contains(pointer) && receipt[pointer].is_string() ? receipt[pointer].get<std::string>()
                                                                     : "";
}

} // namespace

bool isDone(const std::filesystem::path& folder, const ReceiptKey& key, const OutputSettings& settings)
{
    const Json receipt = readReceipt(folder / receiptName);
    if (!receipt.is_object() || textAt(receipt, "/input/sha256") != key.songSha256 ||
        textAt(receipt, "/model/sha256") != key.modelSha256 ||
        receipt.value("options", Json()) != describe(settings))
        return false;
    std::error_code failure;
    for (const Track& track : settings.tracks)
        if (!std::filesystem::exists(folder / toPath(track.name + ".wav"), failure))
            return false;
    return !settings.report || std::filesystem::exists(folder / "report.html", failure);
}

void writeReceipt(const ReceiptFacts& facts, const OutputSettings& settings)
{
    const SeparationResult& result = facts.result;
    Json tracks = Json::object();
    for (std::size_t track = 0; track < settings.tracks.size(); ++track)
        tracks[settings.tracks[track].name] =
            describe(facts.meters.of(track), settings.tracks[track], facts.gain);
    const Json receipt{{"program", "tonwerk-separate"},
                       {"version", TONWERK_VERSION},
                       {"input",
                        {{"file", toText(facts.entry.path.filename())},
                         {"sha256", facts.key.songSha256},
                         {"sample_rate", facts.song.sampleRate()},
                         {"channels", facts.song.channels()},
                         {"frames", result.frames},
                         {"seconds", result.audioSeconds},
                         {"non_finite_samples", result.nonFiniteSamples}}},
                       {"model", describe(facts.model)},
                       {"options", describe(settings)},
                       {"provider", facts.model.provider},
                       {"runtime_providers", facts.model.providers},
                       {"library_log", {{"loading", facts.model.log}, {"separating", result.log}}},
                       {"processing_seconds", result.processingSeconds},
                       {"real_time_factor", result.processingSeconds / result.audioSeconds},
                       {"null_test_dbfs", asDecibels(result.nullPeak)},
                       {"gain_db", asDecibels(facts.gain)},
                       {"tracks", tracks}};
    constexpr int indentation = 2;
    const std::string text = receipt.dump(indentation, ' ', false, Json::error_handler_t::replace) + "\n";
    writeFileAtomically(facts.entry.folder / receiptName, text.data(), text.size());
}

} // namespace tonwerk::app
