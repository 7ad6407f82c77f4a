// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_BATCH_PROGRESSREPORTER_H
#define TONWERK_APPS_BATCH_PROGRESSREPORTER_H

#include <cstddef>
#include <string>

#include "batch/SongList.h"
#include "batch/SongSeparator.h"

namespace tonwerk::app
{

/// How many songs came to which end.
struct BatchCounts
{
    std::size_t done = 0;
    std::size_t failed = 0;
    std::size_t skipped = 0;
};

/// Tells the user what happens. Several threads may call at once.
class ProgressReporter
{
public:
    ProgressReporter() = default;
    virtual ~ProgressReporter() = default;

    ProgressReporter(const ProgressReporter&) = delete;
    ProgressReporter& operator=(const ProgressReporter&) = delete;

    /// So many songs are going to be separated.
    virtual void begin(std::size_t songs) = 0;

    /// A song is being worked on; called first with a fraction of 0.
    /// \param fraction from 0 to 1; 0 throughout if the song's length is unknown
    /// \param audioSeconds of sound that have been worked on
    virtual void progress(const SongEntry& song, double fraction, double audioSeconds) = 0;

    virtual void done(const SongEntry& song, const SongSummary& summary) = 0;

    /// The song's receipt says that it is done.
    virtual void skipped(const SongEntry& song) = 0;

    /// \param input path of a song, or what else was asked for
    /// \param sentence why it cannot be separated
    virtual void failed(const std::string& input, const std::string& sentence) = 0;

    /// There will be nothing more to tell.
    virtual void end(const BatchCounts& counts) = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_BATCH_PROGRESSREPORTER_H
