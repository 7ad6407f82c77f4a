// SPDX-License-Identifier: MIT
#ifndef TONWERK_INFERENCE_MODELCACHE_H
#define TONWERK_INFERENCE_MODELCACHE_H

#include <filesystem>

/// Removes the directory in which an execution provider kept compiled models, with everything in it. An empty
/// path and a directory that does not exist are fine; a failure is logged and otherwise ignored.
void removeModelCache(const std::filesystem::path& directory);

#endif // TONWERK_INFERENCE_MODELCACHE_H
