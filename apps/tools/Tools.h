// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_TOOLS_H
#define TONWERK_APPS_TOOLS_TOOLS_H

#include <optional>
#include <string>
#include <vector>

namespace tonwerk::app
{

/// Runs the tool that the first argument names: doctor, check-model or scramble.
/// \param arguments what follows the program's name, as UTF-8
/// \return the program's exit code (0 all is well, 1 something is wrong), or nothing if it names no tool
/// \throws UsageError, Failure
std::optional<int> runTool(const std::vector<std::string>& arguments);

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_TOOLS_H
