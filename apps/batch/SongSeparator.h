// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_BATCH_SONGSEPARATOR_H
#define TONWERK_APPS_BATCH_SONGSEPARATOR_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "batch/Job.h"
#include "batch/Receipt.h"
#include "batch/SongList.h"
#include "separation/Model.h"
#include "separation/Separation.h"

namespace tonwerk::app
{

/// Facts about a finished song.
struct SongSummary
{
    double audioSeconds;
    double processingSeconds;
    double nullPeak;
    std::uint64_t nonFiniteSamples;
    /// Factor of the samples in fixed-point files.
    double gain;
    /// What the user should know of the song, as sentences.
    std::vector<std::string> warnings;
};

/// Separates songs one after another with one copy of the model, from the song's file to the receipt. Not
/// thread-safe; separators with different copies of the model are independent.
class SongSeparator
{
public:
    /// All references must outlive this object.
    /// \param output receives raw stems; not owned
    SongSeparator(const Job& job, std::shared_ptr<Model> loaded, const ModelFacts& model, std::FILE* output);

    /// Separates a song. Leaves everything as it was if it throws.
    /// \throws Failure if the song cannot be separated
    /// \throws Interrupted if the user asks to stop
    SongSummary separate(const SongEntry& entry, const Separation::Progress& progress);

private:
    std::unique_ptr<SongSource> open(const SongEntry& entry) const;
    SongSummary separateToOutput(SongSource& song, const Separation::Progress& progress);
    SongSummary separateToFolder(const SongEntry& entry, SongSource& song,
                                 const Separation::Progress& progress);

    const Job& job;
    std::shared_ptr<Model> loaded;
    const ModelFacts& model;
    std::FILE* output;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_BATCH_SONGSEPARATOR_H
