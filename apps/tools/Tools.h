// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_TOOLS_H
#define TONWERK_APPS_TOOLS_TOOLS_H

#include <optional>

namespace tonwerk::app
{

/// Runs the tool that the command line names by its first word: doctor, check-model or scramble.
/// \return the program's exit code (0 all is well, 1 something is wrong), or nothing if it names no tool
/// \throws UsageError, Failure
std::optional<int> runTool(int argc, char** argv);

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_TOOLS_H
