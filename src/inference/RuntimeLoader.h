// SPDX-License-Identifier: MIT
/// \file RuntimeLoader.h
/// Finding and loading the inference runtime, which is not linked but loaded on first use.
#ifndef TONWERK_INFERENCE_RUNTIMELOADER_H
#define TONWERK_INFERENCE_RUNTIMELOADER_H

#include <filesystem>
#include <string>

#include "inference/OrtApi.h"

/// The loaded runtime library; it stays loaded for the rest of the process.
struct RuntimeLibrary
{
    const OrtApiBase* apiBase; ///< never null
    std::string location;      ///< where the file was found, UTF-8
};

/// Loads the runtime library: from the folder of the module that contains this code, so that another copy on
/// the machine cannot take its place, otherwise from the system's library folders, never from the current
/// directory. \throws std::runtime_error naming the file, where it was looked for, and the system's reason
RuntimeLibrary openRuntimeLibrary();

/// The same, but looks in `folder` first.
RuntimeLibrary openRuntimeLibrary(const std::filesystem::path& folder);

/// The library's function table for the API version that this code was written for.
/// \throws std::runtime_error if the library is too old to have that version
const OrtApi* runtimeApi(const RuntimeLibrary& library);

/// Loads the runtime library and returns its function table for the API version that this code was written
/// for. \throws std::runtime_error as openRuntimeLibrary, and if the library is too old to have that version
const OrtApi* loadRuntimeApi();

#endif // TONWERK_INFERENCE_RUNTIMELOADER_H
