// SPDX-License-Identifier: MIT
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "report/Base64.h"
#include "report/PlayerSegments.h"
#include "support/ScratchFolder.h"

namespace
{

using tonwerk::app::base64;
using tonwerk::app::PlayerSegments;

constexpr unsigned rate = 8000;

std::string textOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// What a segment's script hands to the page.
nlohmann::json tracksOf(const std::filesystem::path& folder, std::size_t segment)
{
    const std::string text = textOf(folder / (std::to_string(segment) + ".js"));
    const std::string opening = "stemSegment(" + std::to_string(segment) + ",";
    EXPECT_EQ(text.substr(0, opening.size()), opening);
    return nlohmann::json::parse(text.substr(opening.size(), text.size() - opening.size() - 3));
}

TEST(Base64, GivesTheVectorsOfItsStandard)
{
    EXPECT_EQ(base64(""), "");
    EXPECT_EQ(base64("f"), "Zg==");
    EXPECT_EQ(base64("fo"), "Zm8=");
    EXPECT_EQ(base64("foobar"), "Zm9vYmFy");
    EXPECT_EQ(base64("\xFF\xFE\x80"), "//6A");
}

TEST(PlayerSegments, TracksThatComeApartShareScriptsAndLoudOnesTellTheirScale)
{
    const ScratchFolder folder;
    const std::size_t frames = PlayerSegments::segmentFrames(rate);
    PlayerSegments segments(folder.path() / "player", 2, 2, rate);
    std::vector<float> loud(2 * frames + 200, 0.25F);
    loud[11] = -1.5F;
    loud[12] = std::numeric_limits<float>::quiet_NaN();
    segments.feed(0, loud);
    for (std::size_t half = 0; half < 2; ++half)
        segments.feed(1, std::vector<float>(frames + 100, half == 0 ? 0.0F : -0.0F));
    segments.finish();
    const nlohmann::json first = tracksOf(folder.path() / "player", 0);
    EXPECT_EQ(first.at(0).at(0), 1.5);
    EXPECT_EQ(first.at(0).at(1).get<std::string>().substr(0, 5), "ZkxhQ") << "fLaC";
    EXPECT_TRUE(first.at(1).is_null()) << "silence";
    EXPECT_EQ(tracksOf(folder.path() / "player", 1).at(0).at(0), 1.0);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "player" / "2.js"));
}

} // namespace
