// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_CLI_OPTIONS_H
#define TONWERK_APPS_CLI_OPTIONS_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "audio/PcmEncoder.h"
#include "separation/Stems.h"
#include "separation/Tracks.h"

namespace tonwerk::app
{

/// What the command line asks for.
struct Options
{
    /// Files, folders, patterns and "-", as given.
    std::vector<std::string> inputs;
    /// Empty if the stems go to standard output.
    std::filesystem::path outputFolder;
    std::filesystem::path model;
    /// Scrambling key of the model, empty for a plain one.
    std::string key;
    /// The stems to write.
    StemSet stems;
    /// All that is to be written: the stems and the mixtures.
    std::vector<Track> tracks;
    SampleFormat format;
    /// Sample rate of standard input, in Hz.
    unsigned inputRate;
    /// Songs to separate at once, at least 1.
    unsigned jobs;
    /// Bytes of memory that the jobs may take together, if that is limited.
    std::optional<std::uint64_t> memory;
    /// This part of the songs is to be separated, from 1 to shardCount.
    std::size_t shard;
    std::size_t shardCount;
    /// Whether to write a page that shows and plays the stems.
    bool report;
    /// Whether to write the stems to standard output.
    bool raw;
    /// Whether to skip songs that are done.
    bool resume;
    /// Whether to tell the progress as JSON.
    bool jsonProgress;
};

/// Reads the command line, on Windows from the system, which has it in Unicode.
/// \return nothing if the help text or the version was asked for, which has then been printed
/// \throws UsageError if the command line makes no sense
std::optional<Options> readOptions(int argc, char** argv);

} // namespace tonwerk::app

#endif // TONWERK_APPS_CLI_OPTIONS_H
