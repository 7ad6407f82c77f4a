// SPDX-License-Identifier: MIT
/// \file RuntimeLoader.h
/// Finding and loading the inference runtime, which is not linked but loaded on first use.
#ifndef TONWERK_INFERENCE_RUNTIMELOADER_H
#define TONWERK_INFERENCE_RUNTIMELOADER_H

#include <filesystem>
#include <string>

#include "inference/OrtApi.h"

/// The loaded runtime library.
struct RuntimeLibrary
{
    const OrtApiBase* apiBase; ///< never null
    std::string location;      ///< where the file was found, UTF-8
};

/// Loads the runtime library and hands its function table to the wrapper classes of namespace Ort.
///
/// It is loaded from the folder of the module that contains this code, so that another copy on the machine
/// cannot take its place; if it cannot be loaded from there, from where the system looks for libraries. That
/// is never the current directory. On Windows it is the host program's folder, the system's, and what the
/// host gave to AddDllDirectory; on Linux the folders of LD_LIBRARY_PATH, unless one of them is relative, and
/// the system's.
///
/// The first library that can be used is that of the process: it stays loaded, and later calls look for
/// nothing. A failure is not kept.
/// \throws std::runtime_error naming the file, where it was looked for, and the system's reason; also if the
///         library is too old for the API version that this code was written for
const RuntimeLibrary& openRuntimeLibrary();

/// The same, but looks in `folder` first.
const RuntimeLibrary& openRuntimeLibrary(const std::filesystem::path& folder);

/// Whether the system, asked for a library by its bare name, looks in places only that are fixed, and never
/// in the current directory. So the runtime asks for the libraries of its execution providers.
bool librariesHaveFixedPlaces();

/// Hands the function table of a loaded library to the wrapper classes.
/// \throws std::runtime_error if the library is too old to have one
void useRuntime(const RuntimeLibrary& library);

#endif // TONWERK_INFERENCE_RUNTIMELOADER_H
