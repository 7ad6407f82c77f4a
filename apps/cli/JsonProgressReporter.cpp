// SPDX-License-Identifier: MIT
#include "cli/JsonProgressReporter.h"

#include <cmath>
#include <cstdio>

#include <nlohmann/json.hpp>

#include "system/Text.h"

namespace tonwerk::app
{

using Json = nlohmann::ordered_json;

void JsonProgressReporter::begin(std::size_t songs)
{
    print({{"event", "begin"}, {"version", TONWERK_VERSION}, {"songs", songs}});
}

void JsonProgressReporter::noted(const std::string& sentence)
{
    print({{"event", "note"}, {"text", sentence}});
}

void JsonProgressReporter::progress(const SongEntry& song, double fraction, double audioSeconds)
{
    print({{"event", "progress"},
           {"song", toText(song.path)},
           {"fraction", fraction},
           {"seconds", audioSeconds}});
}

void JsonProgressReporter::done(const SongEntry& song, const SongSummary& summary)
{
    print({{"event", "done"},
           {"song", toText(song.path)},
           {"folder", song.folder.empty() ? Json(nullptr) : Json(toText(song.folder))},
           {"seconds", summary.audioSeconds},
           {"processing_seconds", summary.processingSeconds},
           {"null_test_dbfs",
            summary.nullPeak > 0.0 ? Json(20.0 * std::log10(summary.nullPeak)) : Json(nullptr)},
           {"gain_db", 20.0 * std::log10(summary.gain)},
           {"non_finite_samples", summary.nonFiniteSamples},
           {"warnings", summary.warnings}});
}

void JsonProgressReporter::skipped(const SongEntry& song)
{
    print({{"event", "skipped"}, {"song", toText(song.path)}, {"folder", toText(song.folder)}});
}

void JsonProgressReporter::failed(const std::string& input, const std::string& sentence)
{
    print({{"event", "failed"}, {"song", input}, {"reason", sentence}});
}

void JsonProgressReporter::end(const BatchCounts& counts)
{
    print({{"event", "end"}, {"done", counts.done}, {"failed", counts.failed}, {"skipped", counts.skipped}});
}

void JsonProgressReporter::print(const Json& event)
{
    const std::lock_guard lock(guard);
    const std::string line = printableJson(event.dump(-1, ' ', false, Json::error_handler_t::replace)) + "\n";
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
}

} // namespace tonwerk::app
