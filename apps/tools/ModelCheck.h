// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_MODELCHECK_H
#define TONWERK_APPS_TOOLS_MODELCHECK_H

#include <filesystem>
#include <string>

namespace tonwerk::app
{

/// Checks whether the library can use a network, and prints what is wrong and how fast it is on standard
/// output.
/// \param key scrambling key of the file, empty for a plain one
/// \return whether it keeps to the contract
/// \throws Failure if the file cannot be read or there is no runtime to check it with
bool checkModel(const std::filesystem::path& file, const std::string& key);

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_MODELCHECK_H
