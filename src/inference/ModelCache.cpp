// SPDX-License-Identifier: MIT
#include "inference/ModelCache.h"

#include <exception>

#include "common/Log.h"

void removeModelCache(const std::filesystem::path& directory)
{
    if (directory.empty())
        return;
    try
    {
        if (std::filesystem::exists(directory))
            std::filesystem::remove_all(directory);
    }
    catch (const std::exception& failure)
    {
        TONWERK_LOG_AS("InferenceONNXImplMultiStem::InferenceONNXImplMultiStem", error)
            << "[INFERENCE_onnx] Failed to remove CoreML model cache directory: " << failure.what();
    }
}
