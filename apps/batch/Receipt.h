// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_BATCH_RECEIPT_H
#define TONWERK_APPS_BATCH_RECEIPT_H

#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "audio/SongSource.h"
#include "batch/Job.h"
#include "batch/SongList.h"
#include "batch/TrackMeters.h"
#include "separation/ModelPassport.h"
#include "separation/Separation.h"
#include "system/OutputFolder.h"

namespace tonwerk::app
{

/// The model as a receipt describes it.
struct ModelFacts
{
    /// File name, as UTF-8.
    std::string name;
    std::string sha256;
    ModelPassport passport;
    /// The execution providers that the runtime offers.
    std::vector<std::string> providers;
    /// What runs it.
    std::string provider;
    /// The library's messages while loading it.
    std::vector<std::string> log;
};

/// Identifies the inputs of a separation: equal keys give equal stems.
struct ReceiptKey
{
    std::string songSha256;
    std::string modelSha256;
};

/// The files of a song: its tracks, the page if there is one, and the receipt last.
std::vector<std::string> filesOf(const OutputSettings& settings);

/// Files that an earlier song left in the folder and that these settings do not replace, as the receipt there
/// tells.
std::vector<std::string> staleFiles(const std::filesystem::path& folder, const OutputSettings& settings);

/// The file name of the song whose files lie in the folder, as UTF-8; empty if there is no receipt that
/// tells.
std::string songIn(const std::filesystem::path& folder);

/// Whether the folder has a receipt for this song, model and settings, and all files that it names with the
/// sizes and formats that they should have.
bool isDone(const std::filesystem::path& folder, const ReceiptKey& key, const OutputSettings& settings);

/// The content of a receipt.
struct ReceiptFacts
{
    const SongEntry& entry;
    const SongSource& song;
    const ReceiptKey& key;
    const ModelFacts& model;
    const SeparationResult& result;
    const TrackMeters& meters;
    const OutputFolder& folder;
    /// Factor of the samples in fixed-point files.
    double gain;
};

/// Writes the receipt to the song's unfinished files, of which it is the last.
/// \throws Failure if it cannot be written
void writeReceipt(const ReceiptFacts& facts, const OutputSettings& settings);

} // namespace tonwerk::app

#endif // TONWERK_APPS_BATCH_RECEIPT_H
