// SPDX-License-Identifier: MIT
#include "batch/Receipt.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string_view>
#include <system_error>

#include <nlohmann/json.hpp>

#include "audio/StemCheck.h"
#include "system/BinaryFile.h"
#include "system/NewFile.h"
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
    Json description{{"format", nameOf(settings.format)}, {"stems", Json::array()},
                     {"mixtures", Json::object()},        {"report", settings.report},
                     {"project", settings.project},       {"quality", settings.quality.name},
                     {"step", settings.quality.step},     {"lookahead", settings.quality.lookahead},
                     {"blend", settings.quality.blend}};
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

/// \return what is no object if there is no readable receipt
Json readReceipt(const std::filesystem::path& path)
{
    constexpr std::uintmax_t largest = 100'000'000;
    std::error_code failure;
    if (!std::filesystem::is_regular_file(path, failure) ||
        std::filesystem::file_size(path, failure) > largest)
        return nullptr;
    try
    {
        BinaryFile file(path, FileMode::Read);
        std::string text(static_cast<std::size_t>(std::filesystem::file_size(path)), ' ');
        text.resize(file.read(text.data(), text.size()));
        constexpr bool throwOnError = false;
        return Json::parse(text, nullptr, throwOnError);
    }
    catch (const std::exception&)
    {
        return nullptr;
    }
}

/// All names that files of songs can have.
std::vector<std::string> possibleFiles()
{
    std::vector<std::string> names{karaokeTrack().name + ".wav",
                                   practiceTrack("").name + ".wav",
                                   reportName,
                                   dawProjectName,
                                   reaperProjectName,
                                   playerName};
    for (const std::string_view stem : stemNames)
        names.push_back(std::string(stem) + ".wav");
    return names;
}

/// The size of a file, or of all files in a folder; 0 if it is neither.
std::uintmax_t sizeOf(const std::filesystem::path& path)
{
    std::error_code absent;
    if (!std::filesystem::is_directory(path, absent))
        return std::filesystem::is_regular_file(path, absent) ? std::filesystem::file_size(path, absent) : 0;
    std::uintmax_t size = 0;
    for (const auto& entry : std::filesystem::directory_iterator(path, absent))
        size += entry.is_regular_file(absent) ? entry.file_size(absent) : 0;
    return size;
}

/// Whether the file or folder is as large as the receipt says.
bool hasStatedSize(const Json& receipt, const std::filesystem::path& folder, const std::string& name)
{
    const Json files = receipt.value("files", Json::object());
    return files.is_object() && files.contains(name) && files[name].is_number_unsigned() &&
           sizeOf(folder / toPath(name)) == files[name].get<std::uintmax_t>();
}

/// The number at a JSON pointer, or 0.
std::uint64_t numberAt(const Json& receipt, const char* place)
{
    const Json::json_pointer pointer(place);
    return receipt.contains(pointer) && receipt[pointer].is_number_unsigned()
               ? receipt[pointer].get<std::uint64_t>()
               : 0;
}

/// The sizes of the song's finished files, in bytes.
Json sizesOf(const OutputFolder& folder, const OutputSettings& settings)
{
    Json sizes = Json::object();
    for (const std::string& name : filesOf(settings))
        if (name != receiptName)
            sizes[name] = sizeOf(folder.unfinished(name));
    if (settings.report)
        sizes[playerName] = sizeOf(folder.unfinished(playerName));
    return sizes;
}

/// The text at a JSON pointer such as "/input/sha256", or an empty one.
std::string textAt(const Json& receipt, const char* place)
{
    const Json::json_pointer pointer(place);
    return receipt.contains(pointer) && receipt[pointer].is_string() ? receipt[pointer].get<std::string>()
                                                                     : "";
}

} // namespace

std::string songIn(const std::filesystem::path& folder)
{
    const Json receipt = readReceipt(folder / receiptName);
    return receipt.is_object() ? textAt(receipt, "/input/file") : "";
}

bool isDone(const std::filesystem::path& folder, const ReceiptKey& key, const OutputSettings& settings)
{
    const Json receipt = readReceipt(folder / receiptName);
    if (!receipt.is_object() || textAt(receipt, "/input/sha256") != key.songSha256 ||
        textAt(receipt, "/model/sha256") != key.modelSha256 ||
        receipt.value("options", Json()) != describe(settings))
        return false;
    const SoundShape shape{static_cast<unsigned>(numberAt(receipt, "/input/channels")),
                           static_cast<unsigned>(numberAt(receipt, "/input/sample_rate")),
                           numberAt(receipt, "/input/frames")};
    const auto isWhole = [&](const Track& track)
    {
        const std::string name = track.name + ".wav";
        return hasStatedSize(receipt, folder, name) && isStem(folder / toPath(name), settings.format, shape);
    };
    return std::all_of(settings.tracks.begin(), settings.tracks.end(), isWhole) &&
           (!settings.project || (hasStatedSize(receipt, folder, dawProjectName) &&
                                  hasStatedSize(receipt, folder, reaperProjectName))) &&
           (!settings.report ||
            (hasStatedSize(receipt, folder, reportName) && hasStatedSize(receipt, folder, playerName)));
}

std::vector<std::string> filesOf(const OutputSettings& settings)
{
    std::vector<std::string> names;
    for (const Track& track : settings.tracks)
        names.push_back(track.name + ".wav");
    if (settings.report)
        names.emplace_back(reportName);
    if (settings.project)
        names.insert(names.end(), {dawProjectName, reaperProjectName});
    names.emplace_back(receiptName);
    return names;
}

std::vector<std::string> staleFiles(const std::filesystem::path& folder, const OutputSettings& settings)
{
    const Json receipt = readReceipt(folder / receiptName);
    if (!receipt.is_object() || !receipt.contains("files") || !receipt["files"].is_object())
        return {};
    const std::vector<std::string> current = filesOf(settings);
    std::vector<std::string> stale;
    for (const std::string& name : possibleFiles())
        if (receipt["files"].contains(name) &&
            std::find(current.begin(), current.end(), name) == current.end() &&
            !(settings.report && name == playerName))
            stale.push_back(name);
    return stale;
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
                       {"warnings", facts.song.warnings()},
                       {"tracks", tracks},
                       {"files", sizesOf(facts.folder, settings)}};
    constexpr int indentation = 2;
    const std::string text =
        printableJson(receipt.dump(indentation, ' ', false, Json::error_handler_t::replace)) + "\n";
    writeNewFile(facts.folder.unfinished(receiptName), text.data(), text.size());
}

} // namespace tonwerk::app
