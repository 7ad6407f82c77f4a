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

/// Whether the folder has a receipt for this song, model and settings, and all files that it names.
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
    /// Factor of the samples in fixed-point files.
    double gain;
};

/// Writes the receipt into the song's folder.
/// \throws Failure if it cannot be written
void writeReceipt(const ReceiptFacts& facts, const OutputSettings& settings);

} // namespace tonwerk::app

#endif // TONWERK_APPS_BATCH_RECEIPT_H
