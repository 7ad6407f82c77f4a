// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_SELFCHECKMODEL_H
#define TONWERK_APPS_TOOLS_SELFCHECKMODEL_H

#include <string_view>

namespace tonwerk::app
{

/// The bytes of gains.onnx, which cmake/EmbedText.cmake puts into the program.
std::string_view selfCheckModel();

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_SELFCHECKMODEL_H
