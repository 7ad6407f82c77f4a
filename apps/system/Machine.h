// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_MACHINE_H
#define TONWERK_APPS_SYSTEM_MACHINE_H

#include <filesystem>
#include <string>

namespace tonwerk::app
{

/// The file of the running program.
std::filesystem::path programFile();

/// The file of the loaded separation library.
std::filesystem::path libraryFile();

/// The value of an environment variable as UTF-8, empty if it is not set.
std::string environmentVariable(const std::string& name);

/// The processor's name, empty if unknown.
std::string processorName();

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_MACHINE_H
