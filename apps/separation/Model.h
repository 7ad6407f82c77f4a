// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_MODEL_H
#define TONWERK_APPS_SEPARATION_MODEL_H

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <tonwerk/TonwerkProc.h>

namespace tonwerk::app
{

/// The bytes of a model's file.
/// \throws Failure if the file is empty or cannot be read
std::vector<char> readModel(const std::filesystem::path& path);

/// Loads a separation model from a file.
/// \param key scrambling key of the file, empty for a plain one
/// \throws Failure if the file cannot be read or the library refuses it
std::shared_ptr<InferenceContext> loadModel(const std::filesystem::path& path, const std::string& key);

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_MODEL_H
