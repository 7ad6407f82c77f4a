// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_BATCH_PROGRESSREPORTER_H
#define TONWERK_APPS_BATCH_PROGRESSREPORTER_H

#include <cstddef>
#include <string>

#include "batch/SongList.h"
#include "batch/SongSeparator.h"

namespace tonwerk::app
{

/// Numbers of songs by result.
struct BatchCounts
{
    std::size_t done = 0;
    std::size_t failed = 0;
    std::size_t skipped = 0;
};

/// Reports the progress of a batch to the user. Several threads may call at the same time.
class ProgressReporter
{
public:
    ProgressReporter() = default;
    virtual ~ProgressReporter() = default;

    ProgressReporter(const ProgressReporter&) = delete;
    ProgressReporter& operator=(const ProgressReporter&) = delete;

    /// \param songs number of songs to separate
    virtual void begin(std::size_t songs) = 0;

    /// Something that the user should know about the whole batch.
    virtual void noted(const std::string& sentence) = 0;

    /// Progress of one song; the first call has a fraction of 0.
    /// \param fraction from 0 to 1; 0 throughout if the song's length is unknown
    /// \param audioSeconds length of the audio processed so far
    virtual void progress(const SongEntry& song, double fraction, double audioSeconds) = 0;

    virtual void done(const SongEntry& song, const SongSummary& summary) = 0;

    /// The song's receipt says that it is done.
    virtual void skipped(const SongEntry& song) = 0;

    /// \param input path of the song, or the input that yields none
    /// \param sentence why it cannot be separated
    virtual void failed(const std::string& input, const std::string& sentence) = 0;

    /// The batch has ended.
    virtual void end(const BatchCounts& counts) = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_BATCH_PROGRESSREPORTER_H
