// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_BATCH_BATCH_H
#define TONWERK_APPS_BATCH_BATCH_H

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <mutex>
#include <vector>

#include "batch/Job.h"
#include "batch/ProgressReporter.h"
#include "batch/Receipt.h"
#include "batch/SongList.h"
#include "batch/SongSeparator.h"
#include "separation/Model.h"

namespace tonwerk::app
{

/// Separates all songs of a job.
///
/// Workers are threads, each with its own copy of the model: users of one copy take turns, and nearly all of
/// the work is running the model. They share the processors evenly.
class Batch
{
public:
    /// All references must outlive this object.
    /// \param output receives raw stems; not owned
    Batch(const Job& job, ProgressReporter& reporter, std::FILE* output);

    /// Separates all songs. A song that fails does not stop the others.
    /// \throws Failure if the model cannot be used
    /// \throws Interrupted if the user asked to stop
    BatchCounts run();

private:
    std::vector<SongEntry> findAll();
    std::vector<SongEntry> withoutDone(const std::vector<SongEntry>& songs);
    bool isDoneBefore(const SongEntry& song) const;
    void checkModel();
    void requireRows() const;
    void loadModels(std::size_t songs);
    std::size_t workerCount(std::size_t songs) const;
    void work(std::shared_ptr<Model> loaded, const std::vector<SongEntry>& songs);
    void separate(SongSeparator& separator, const SongEntry& song);
    void countFailure(const std::string& input, const std::string& sentence);

    const Job& job;
    ProgressReporter& reporter;
    std::FILE* output;
    std::vector<char> modelBytes; ///< until it is loaded
    ModelFacts model;
    std::vector<std::shared_ptr<Model>> models;
    std::atomic<std::size_t> nextSong{0};
    std::mutex guard; ///< protects the counts
    BatchCounts counts;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_BATCH_BATCH_H
