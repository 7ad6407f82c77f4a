#include "inference/RuntimeLoader.h"

#include <filesystem>

#include <gtest/gtest.h>

namespace
{

namespace fs = std::filesystem;

// What happens where the runtime is missing or of the wrong kind is tested on the built library.
TEST(RuntimeLoader, TheRuntimeComesFromTheFolderOfTheCodeThatLoadsIt)
{
    const RuntimeLibrary library = openRuntimeLibrary();
    ASSERT_NE(library.apiBase, nullptr);
    EXPECT_TRUE(fs::equivalent(fs::path(library.location).parent_path(), TONWERK_TEST_BIN_DIR))
        << library.location;
    EXPECT_EQ(openRuntimeLibrary().apiBase, library.apiBase);
    EXPECT_NE(loadRuntimeApi(), nullptr);
}

} // namespace
