// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_BATCH_JOB_H
#define TONWERK_APPS_BATCH_JOB_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "audio/PcmEncoder.h"
#include "separation/Quality.h"
#include "separation/Stems.h"
#include "separation/Tracks.h"

namespace tonwerk::app
{

/// The files to make of each song. A receipt records it: equal songs, models and settings give equal files.
struct OutputSettings
{
    /// The stems to write.
    StemSet stems;
    /// The files to write: the stems and the mixtures.
    std::vector<Track> tracks;
    SampleFormat format = SampleFormat::Float32;
    /// Whether to write a page that shows and plays the stems.
    bool report = false;
    /// Whether to write sessions for recording programs, with a track per stem.
    bool project = false;
    Quality quality;
};

/// The songs to separate, and how.
struct Job
{
    /// Files, folders and "-", as given.
    std::vector<std::string> inputs;
    /// Empty if the stems go to standard output.
    std::filesystem::path outputFolder;
    std::filesystem::path model;
    /// What the user should know about the choice of the model, empty if nothing.
    std::string modelRemark;
    /// Scrambling key of the model, empty for a plain one.
    std::string key;
    OutputSettings output;
    /// Sample rate of standard input, in Hz.
    unsigned inputRate = 44100;
    /// Whether standard input holds samples, whatever they look like.
    bool rawInput = false;
    /// Songs to separate at the same time, at least 1.
    unsigned workers = 1;
    /// Limit on the memory of all workers together, in bytes.
    std::optional<std::uint64_t> memory;
    /// The part of the songs to separate, from 1 to shardCount.
    std::size_t shard = 1;
    std::size_t shardCount = 1;
    /// Whether to write the stems to standard output.
    bool raw = false;
    /// Whether to skip songs that are done.
    bool resume = false;
    /// Whether to replace what another song left in a song's folder.
    bool overwrite = false;
    /// Whether to wait for each song until its files are on the disk.
    bool lasting = true;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_BATCH_JOB_H
