// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_CLI_JSONPROGRESSREPORTER_H
#define TONWERK_APPS_CLI_JSONPROGRESSREPORTER_H

#include <mutex>

#include <nlohmann/json_fwd.hpp>

#include "batch/ProgressReporter.h"

namespace tonwerk::app
{

/// Reports progress to programs: one JSON object per line on standard error. docs/separate.md has the fields.
class JsonProgressReporter : public ProgressReporter
{
public:
    void begin(std::size_t songs) override;
    void noted(const std::string& sentence) override;
    void progress(const SongEntry& song, double fraction, double audioSeconds) override;
    void done(const SongEntry& song, const SongSummary& summary) override;
    void skipped(const SongEntry& song) override;
    void failed(const std::string& input, const std::string& sentence) override;
    void end(const BatchCounts& counts) override;

private:
    void print(const nlohmann::ordered_json& event);

    std::mutex guard;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_CLI_JSONPROGRESSREPORTER_H
