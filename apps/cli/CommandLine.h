// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_CLI_COMMANDLINE_H
#define TONWERK_APPS_CLI_COMMANDLINE_H

#include <optional>
#include <string>
#include <vector>

#include "batch/Job.h"

namespace tonwerk::app
{

/// What the command line asks for.
struct CommandLine
{
    Job job;
    /// Whether to show the models of the job's, a folder, in place of separating; an empty one stands for
    /// those that come with the program.
    bool listModels = false;
    /// Whether to report the progress as JSON.
    bool jsonProgress = false;
};

/// Reads the command line.
/// \param arguments what follows the program's name, as UTF-8
/// \return nothing if it asks for the help text or the version, which this function has then printed
/// \throws UsageError if the command line makes no sense
std::optional<CommandLine> readCommandLine(const std::vector<std::string>& arguments);

} // namespace tonwerk::app

#endif // TONWERK_APPS_CLI_COMMANDLINE_H
