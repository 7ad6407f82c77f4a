// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_DEFAULTMODEL_H
#define TONWERK_APPS_SEPARATION_DEFAULTMODEL_H

#include <filesystem>

namespace tonwerk::app
{

/// The model to use when the user names none: the file in the environment variable TONWERK_MODEL, else
/// tonwerk-small.onnx beside the program, else in the folders share/tonwerk/models and models beside the
/// program's folder.
/// \throws Failure naming the places if there is none, or if the file in TONWERK_MODEL does not exist
std::filesystem::path defaultModel();

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_DEFAULTMODEL_H
