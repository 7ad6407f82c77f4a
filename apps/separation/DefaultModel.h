// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_DEFAULTMODEL_H
#define TONWERK_APPS_SEPARATION_DEFAULTMODEL_H

#include <filesystem>

namespace tonwerk::app
{

/// The model to separate with when the user names none: the one that the environment variable TONWERK_MODEL
/// names, else tonwerk-small.onnx beside the program, else in the folders share/tonwerk/models and models
/// beside the program's folder.
/// \throws Failure naming the places if there is none, or if what TONWERK_MODEL names does not exist
std::filesystem::path defaultModel();

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_DEFAULTMODEL_H
