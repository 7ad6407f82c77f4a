// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_ONNXHEADER_H
#define TONWERK_APPS_TOOLS_ONNXHEADER_H

#include <cstdint>
#include <string>
#include <string_view>

namespace tonwerk::app
{

/// What an ONNX file says of itself besides its graph.
struct OnnxHeader
{
    std::uint64_t irVersion = 0; ///< of the file format
    std::string producer;        ///< the program that wrote it, with its version
    std::string operatorSets;    ///< "opset 17", with the sets of other domains behind it
};

/// Reads the outermost message of a serialized ModelProto, for which the runtime has no function. Fields that
/// are missing or damaged stay empty: whether the file can be used is the runtime's judgement.
OnnxHeader readOnnxHeader(std::string_view model);

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_ONNXHEADER_H
