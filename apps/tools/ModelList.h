// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_MODELLIST_H
#define TONWERK_APPS_TOOLS_MODELLIST_H

#include <cstdio>
#include <filesystem>

namespace tonwerk::app
{

/// Prints the models of a folder with their passports.
/// \param folder a folder of models, or one model; empty for the folders that come with the program
/// \param output where the lines go; not owned
/// \throws Failure if there is no model, or one cannot be read
void listModels(const std::filesystem::path& folder, std::FILE* output);

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_MODELLIST_H
