// SPDX-License-Identifier: MIT
/// \file LoadedRuntime.h
/// What the tests have to know about the platform's loader.
#ifndef TONWERK_TESTS_BOUNDARY_LOADEDRUNTIME_H
#define TONWERK_TESTS_BOUNDARY_LOADEDRUNTIME_H

#include <string>

/// Whether this process has an inference runtime in memory, under its own name or another.
bool isRuntimeLoaded();

/// The part of the system's reason that tells that there is no such file.
std::string missingFileReason();

/// The part of the system's reason that tells that a file is no library.
std::string wrongFormatReason();

/// Makes child processes look for libraries in this place first, as far as a variable can. Empty: as it was.
void setLibrarySearchPath(const std::string& path);

/// Whether the library finds the runtime, too, in the place that setLibrarySearchPath names.
bool searchPathLeadsToTheRuntime();

/// Removes a variable from this process's environment.
void unsetVariable(const std::string& name);

#endif // TONWERK_TESTS_BOUNDARY_LOADEDRUNTIME_H
