// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_CLI_TEXTPROGRESSREPORTER_H
#define TONWERK_APPS_CLI_TEXTPROGRESSREPORTER_H

#include <cstdio>
#include <map>
#include <mutex>
#include <optional>

#include "batch/ProgressReporter.h"
#include "cli/ProgressDisplay.h"

namespace tonwerk::app
{

/// Reports to people: progress and errors on standard error, a line per finished song on `output`.
class TextProgressReporter : public ProgressReporter
{
public:
    /// \param output not owned
    explicit TextProgressReporter(std::FILE* output) : lines(output) {}

    void begin(std::size_t songs) override;
    void noted(const std::string& sentence) override;
    void progress(const SongEntry& song, double fraction, double audioSeconds) override;
    void done(const SongEntry& song, const SongSummary& summary) override;
    void skipped(const SongEntry& song) override;
    void failed(const std::string& input, const std::string& sentence) override;
    void end(const BatchCounts& counts) override;

private:
    struct Running
    {
        double fraction = 0.0;
        double audioSeconds = 0.0;
    };

    void finish(const std::string& path);
    void warn(const std::string& sentence) const;

    std::FILE* lines;
    std::mutex guard;
    std::optional<ProgressDisplay> display;
    std::map<std::string, Running> running; ///< by path
    std::size_t songCount = 0;
    std::size_t finished = 0;
    double finishedSeconds = 0.0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_CLI_TEXTPROGRESSREPORTER_H
