// SPDX-License-Identifier: MIT
// Blocks of any size: the same stems for every way to cut the input, and what happens without the feeder.

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <tonwerk/StreamFeeder.h>

#include "support/Stream.h"

namespace
{

using tonwerk::StreamFeeder;

static_assert(!std::is_copy_constructible_v<StreamFeeder> && !std::is_copy_assignable_v<StreamFeeder>);

// Two chunks and a remainder; more than the processor holds.
constexpr std::size_t length = 530000;

struct Cut
{
    std::string name;
    std::function<std::size_t()> nextSize;
};

std::vector<Cut> cuts()
{
    std::vector<Cut> all;
    for (const std::size_t size : {1U, 441U, 480U, 1000U, 257025U, 530000U})
        all.push_back({"blocks of " + std::to_string(size), [size] { return size; }});
    for (const std::size_t largest : {4096U, 100000U, 500000U})
    {
        const auto generator =
            std::make_shared<std::mt19937>(randomSeed() + static_cast<std::uint32_t>(largest));
        const auto nextSize = [generator, largest]
        { return std::uniform_int_distribution<std::size_t>(0, largest)(*generator); };
        all.push_back({"random blocks of up to " + std::to_string(largest), nextSize});
    }
    return all;
}

/// Feeds a signal, collects what comes, and checks when it comes.
StreamResult fed(StreamFeeder& feeder, const Stereo& signal, bool interleaved, const Cut& cut)
{
    StreamResult result;
    const auto take = [&](const StreamFeeder::Stems& stems)
    {
        for (std::size_t i = 0; i < stems.size(); ++i)
        {
            const Stereo piece = unpacked(stems[i], interleaved);
            Stereo& whole = result.stems.at(i);
            whole.left.insert(whole.left.end(), piece.left.begin(), piece.left.end());
            whole.right.insert(whole.right.end(), piece.right.begin(), piece.right.end());
        }
    };
    std::size_t mostHeld = 0;
    for (std::size_t position = 0; position < signal.size();)
    {
        const std::size_t count = std::min(cut.nextSize(), signal.size() - position);
        const std::size_t wanted = feeder.framesUntilResult();
        const auto stems = feeder.feed(packed(slice(signal, position, count), interleaved));
        EXPECT_EQ(stems.empty(), count < wanted) << cut.name << ", after " << position;
        take(stems);
        position += count;
        mostHeld = std::max(mostHeld, position - result.stems[0].size());
    }
    take(feeder.finish());
    EXPECT_LE(mostHeld, StreamFeeder::latencyFrames) << cut.name;
    if (cut.nextSize() == 1)
    {
        EXPECT_EQ(mostHeld, StreamFeeder::latencyFrames) << "no host need wait longer";
    }
    return result;
}

class StreamFeederOf : public ::testing::TestWithParam<bool>
{
};

INSTANTIATE_TEST_SUITE_P(Stream, StreamFeederOf, ::testing::Values(true, false),
                         [](const auto& layout) { return layout.param ? "Interleaved" : "Planar"; });

// With a network that looks at neighbouring frames, so that the cuts between the chunks show.
TEST_P(StreamFeederOf, EveryCutOfTheInputGivesTheStemsOfWholeBlocks)
{
    const bool interleaved = GetParam();
    const auto context = loadContext("neighbours.onnx");
    const Stereo signal = noise(length);
    Stream wholeBlocks(context, allStems(interleaved));
    std::size_t position = 0;
    while (length - position >= wholeBlocks.processor().maxInputSize())
    {
        const auto count = static_cast<std::size_t>(wholeBlocks.processor().maxInputSize());
        wholeBlocks.feed(slice(signal, position, count));
        position += count;
    }
    wholeBlocks.feed(slice(signal, position, length - position), true);

    for (const Cut& cut : cuts())
    {
        StreamFeeder feeder(context, allStems(interleaved));
        const StreamResult result = fed(feeder, signal, interleaved, cut);
        for (std::size_t i = 0; i < stemCount; ++i)
        {
            EXPECT_EQ(result.stems[i].size(), length) << cut.name << ", stem " << i;
            EXPECT_TRUE(result.stems[i].left == wholeBlocks.stem(i).left) << cut.name << ", stem " << i;
            EXPECT_TRUE(result.stems[i].right == wholeBlocks.stem(i).right) << cut.name << ", stem " << i;
        }
    }
}

// 480 does not divide the hop. The first chunk is taken with 257,280 frames, 256 beyond a whole hop, the
// second one with 255,136, 160 beyond: the stems come early by as much, and that is missing at the end.
TEST(BlocksOf480Frames, AreMisplacedWithoutTheFeederAndInPlaceWithIt)
{
    const auto context = loadContext("gains.onnx");
    const Stereo signal = noise(length);
    Stream direct(context);
    for (std::size_t position = 0; position < length; position += 480)
    {
        const std::size_t count = std::min<std::size_t>(480, length - position);
        direct.feed(slice(signal, position, count), position + count == length);
    }
    constexpr std::size_t stretch = 100000;
    // Rounding only.
    constexpr float tolerance = 1e-6F;
    for (const auto& [position, early] : {std::pair{100000U, 256U}, std::pair{300000U, 416U}})
    {
        const Stereo mixed = slice(direct.stem(mix), position, stretch);
        EXPECT_GT(largestDifference(mixed, slice(signal, position, stretch)), 0.1F) << position;
        EXPECT_LE(largestDifference(mixed, slice(signal, position + early, stretch)), tolerance) << position;
    }
    EXPECT_EQ(direct.stem(mix).size(), length - 416);

    StreamFeeder feeder(context, allStems());
    const StreamResult result = fed(feeder, signal, true, {"blocks of 480", [] { return 480U; }});
    EXPECT_LE(largestDifference(result.stems[mix], signal, 4096, length - 4096), tolerance);
}

template <typename Exception, typename Action>
std::string refusal(Action action)
{
    try
    {
        action();
    }
    catch (const Exception& failure)
    {
        return failure.what();
    }
    return "no such exception";
}

TEST(StreamFeeder, RefusesWhatItCannotTakeAndIsUnchanged)
{
    const auto context = loadContext("gains.onnx");
    auto mono = allStems();
    mono.channels = 1;
    EXPECT_EQ(refusal<std::invalid_argument>([&] { StreamFeeder(context, mono); }),
              "Only 2 channels are supported");
    EXPECT_EQ(refusal<std::runtime_error>([] { StreamFeeder(nullptr, allStems()); }),
              "Inference context is not provided");

    StreamFeeder feeder(context, allStems());
    feeder.feed(std::vector<float>(6, 0.25F));
    EXPECT_EQ(refusal<std::invalid_argument>([&] { feeder.feed(std::vector<float>(7)); }),
              "A stereo block cannot have an odd number of samples");
    EXPECT_TRUE(feeder.feed(nullptr, 0).empty());
    EXPECT_EQ(feeder.framesUntilResult(), 257021U);
    EXPECT_EQ(feeder.finish().at(mix).size(), 6U);
    EXPECT_EQ(feeder.framesUntilResult(), 0U);
    EXPECT_EQ(refusal<std::logic_error>([&] { feeder.feed(nullptr, 0); }), "The stream has ended");
    EXPECT_EQ(refusal<std::logic_error>([&] { feeder.finish(); }), "The stream has ended");

    EXPECT_TRUE(StreamFeeder(context, allStems()).finish().empty()) << "nothing in, nothing out";
}

TEST(StreamFeeder, FailsForGoodWhenTheProcessorThrows)
{
    StreamFeeder feeder(loadContext("wrong/dynamic_output_shape.onnx"), allStems());
    EXPECT_THROW(feeder.feed(std::vector<float>(2 * 257024)), std::exception);
    EXPECT_EQ(feeder.framesUntilResult(), 0U);
    EXPECT_EQ(refusal<std::logic_error>([&] { feeder.feed(nullptr, 0); }), "The stream has failed");
    EXPECT_EQ(refusal<std::logic_error>([&] { feeder.finish(); }), "The stream has failed");
}

} // namespace
