// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_DEFAULTMODEL_H
#define TONWERK_APPS_SEPARATION_DEFAULTMODEL_H

#include <filesystem>
#include <string>
#include <vector>

namespace tonwerk::app
{

/// A model, and what the user should know about the choice of it.
struct ChosenModel
{
    std::filesystem::path path;
    /// A sentence, empty if there is nothing to say.
    std::string remark;
};

/// The model to separate with when the user names none: the one that the environment variable TONWERK_MODEL
/// names, else the first of tonwerk-standard.onnx and tonwerk-small.onnx beside the program, else in the
/// folders share/tonwerk/models and models beside the program's folder.
/// \throws Failure naming the places if there is none, or if what TONWERK_MODEL names does not exist
ChosenModel defaultModel();

/// The model that the user names.
/// \param path a model, or a folder of models, of which it is the first of tonwerk-standard.onnx and
///     tonwerk-small.onnx, or else the only one
/// \throws Failure if the folder has no model, or several others
ChosenModel namedModel(const std::filesystem::path& path);

/// The models (.onnx) of a folder, sorted by name.
/// \throws Failure if it cannot be read
std::vector<std::filesystem::path> modelsIn(const std::filesystem::path& folder);

/// The folders of models that come with the program, as far as they exist.
std::vector<std::filesystem::path> modelFolders();

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_DEFAULTMODEL_H
