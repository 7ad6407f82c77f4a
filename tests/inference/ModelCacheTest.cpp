// SPDX-License-Identifier: MIT
#include "inference/ModelCache.h"

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "support/LogCapture.h"
#include "support/ScratchFolder.h"

namespace fs = std::filesystem;

// An empty path must never be taken for the current directory.
TEST(ModelCache, IsRemovedWithEverythingInItAndNothingElse)
{
    const ScratchFolder scratch;
    const LogCapture log;
    const fs::path before = fs::current_path();
    fs::current_path(scratch.path());
    fs::create_directories("cache/deep/er");
    std::ofstream("cache/deep/model.bin") << "compiled";
    std::ofstream("neighbour") << "stays";

    removeModelCache({});
    EXPECT_TRUE(fs::exists("cache/deep/model.bin"));
    removeModelCache("cache");
    EXPECT_FALSE(fs::exists("cache"));
    removeModelCache("cache");
    EXPECT_TRUE(fs::exists("neighbour"));
    fs::current_path(before);
    EXPECT_TRUE(log.lines().empty()) << "a cache that does not exist is fine";
}

// One system cannot look up names that are too long, the other cannot remove files that are open.
TEST(ModelCache, TroubleIsLoggedAndIgnored)
{
    const ScratchFolder scratch;
    const LogCapture log;
    const std::ofstream open(scratch.path() / "open");
    removeModelCache(fs::path(std::string(5000, 'x')));
    removeModelCache(scratch.path());
    ASSERT_EQ(log.lines().size(), 1U);
    const std::string start =
        "ERROR [InferenceONNXImplMultiStem::InferenceONNXImplMultiStem] [INFERENCE_onnx] Failed to "
        "remove CoreML model cache directory: ";
    EXPECT_TRUE(log.lines()[0].starts_with(start)) << log.lines()[0];
    EXPECT_GT(log.lines()[0].size(), start.size());
}
