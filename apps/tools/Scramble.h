// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_SCRAMBLE_H
#define TONWERK_APPS_TOOLS_SCRAMBLE_H

#include <filesystem>
#include <string>

namespace tonwerk::app
{

/// Writes a model scrambled with a key; of a scrambled one, with the same key, the plain one.
/// \param key not empty
/// \throws Failure if a file cannot be read or written, or both are the same
void scrambleModel(const std::filesystem::path& model, const std::filesystem::path& output,
                   const std::string& key);

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_SCRAMBLE_H
