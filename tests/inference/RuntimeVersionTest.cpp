#include <filesystem>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "inference/BackendFixture.h"
#include "inference/RuntimeLoader.h"

namespace
{

class RuntimeVersion : public BackendFixture
{
};

TEST_F(RuntimeVersion, ATooOldRuntimeIsNamedWithItsPlaceAndVersionAndMayBeReplaced)
{
    standin.tooOld = true;
    const std::string location = openRuntimeLibrary().location;
    EXPECT_TRUE(std::filesystem::path(location).is_absolute());
    try
    {
        load("gains.onnx");
        FAIL() << "no exception";
    }
    catch (const std::runtime_error& failure)
    {
        EXPECT_EQ(std::string(failure.what()), "The inference runtime " + location +
                                                   " is version 1.20.0, but version 1.21 or newer is needed");
    }
    EXPECT_EQ(log.lines(), std::vector<std::string>{});

    standin.tooOld = false;
    EXPECT_NE(load("gains.onnx"), nullptr);
}

} // namespace
