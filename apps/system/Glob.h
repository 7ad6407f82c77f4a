// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_GLOB_H
#define TONWERK_APPS_SYSTEM_GLOB_H

#include <filesystem>
#include <string>
#include <vector>

namespace tonwerk::app
{

/// Whether the text has a "*" or "?".
bool isPattern(const std::string& text);

/// The files and folders whose paths match a pattern: "*" stands for any characters of a name, "?" for one.
/// Case does not matter, and names that begin with a full stop match only a full stop.
/// \param pattern a path as UTF-8, with patterns in any of its names
std::vector<std::filesystem::path> matchingPaths(const std::string& pattern);

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_GLOB_H
