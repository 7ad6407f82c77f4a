// SPDX-License-Identifier: MIT
// Which stems come back, in which order, and how samples are laid out.

#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/Stream.h"

namespace
{

/// Switches by bit, in the order of the stems.
tonwerk::TonwerkProcConfig configWith(unsigned switches)
{
    tonwerk::TonwerkProcConfig config{};
    config.vocals = switches >> vocals & 1U;
    config.drum = switches >> drum & 1U;
    config.piano = switches >> piano & 1U;
    config.acousticGuitar = switches >> acousticGuitar & 1U;
    config.electricGuitar = switches >> electricGuitar & 1U;
    config.bass = switches >> bass & 1U;
    config.interleaved = true;
    return config;
}

constexpr unsigned allSwitches = 0x3F;

/// Scaled input where the switch is set, exact zeros elsewhere, and residual and mix to match.
void expectStems(const StreamResult& result, unsigned switches, const Stereo& input)
{
    // The first and last 4096 samples are a little off (see the identity tests), which is not the point here.
    constexpr float tolerance = 2.5e-4F;
    float sum = 0.0F;
    for (std::size_t i = 0; i < modelGains.size(); ++i)
    {
        const float gain = (switches >> i & 1U) != 0 ? modelGains[i] : 0.0F;
        sum += gain;
        EXPECT_LE(largestDifference(result.stems[i], scaled(input, gain)), gain > 0.0F ? tolerance : 0.0F)
            << "stem " << i << " of switches " << switches;
    }
    for (const auto& [stem, gain] : {std::pair{mix, sum}, std::pair{residual, 1.0F - sum}})
        EXPECT_LE(largestDifference(result.stems[stem], scaled(input, gain)),
                  switches == 0 ? 0.0F : tolerance)
            << "stem " << stem << " of switches " << switches;
}

// The gains differ from stem to stem, so that exchanged stems show.
TEST(StemSwitches, SilenceExactlyTheStemsThatAreOff)
{
    const Stereo input = noise(10000);
    for (const std::string model : {"gains.onnx", "reordered.onnx"})
    {
        const auto context = loadContext(model);
        for (const unsigned switches :
             {0U, 1U, 2U, 4U, 8U, 16U, 32U, allSwitches - 32U, allSwitches - 1U, allSwitches})
            expectStems(separate(context, input, configWith(switches)), switches, input);
    }
}

TEST(StemSwitches, OfTheProcessorBuiltLastHoldForTheWholeContext)
{
    const Stereo input = noise(10000);
    const auto context = loadContext("gains.onnx");
    Stream first(context, configWith(allSwitches));
    const Stream second(context, configWith(1U << bass));
    Stream elsewhere(loadContext("gains.onnx"), configWith(allSwitches));
    first.feedAll(input);
    expectStems(first.result(), 1U << bass, input);
    elsewhere.feedAll(input);
    expectStems(elsewhere.result(), allSwitches, input);
}

// In turns on one context, and the layouts must not differ in a single sample.
TEST(Stream, InterleavedAndPlanarSideBySideGiveTheSamplesOfOneAlone)
{
    constexpr std::size_t block = 131072; // whole hops
    const Stereo input = noise(4 * block);
    const Stereo other = noise(4 * block, randomSeed() + 1);
    const auto context = loadContext("neighbours.onnx");
    Stream interleaved(context, allStems(true));
    Stream planar(context, allStems(false));
    Stream disturbing(context);
    for (std::size_t position = 0; position < input.size(); position += block)
        for (auto* stream : {&interleaved, &disturbing, &planar})
            stream->feed(slice(stream == &disturbing ? other : input, position, block),
                         position + block == input.size());
    Stream alone(context);
    for (std::size_t position = 0; position < input.size(); position += block)
        alone.feed(slice(input, position, block), position + block == input.size());
    for (std::size_t i = 0; i < stemCount; ++i)
    {
        ASSERT_EQ(alone.stem(i).size(), input.size());
        EXPECT_EQ(largestDifference(interleaved.stem(i), alone.stem(i)), 0) << "stem " << i;
        EXPECT_EQ(largestDifference(planar.stem(i), alone.stem(i)), 0) << "stem " << i;
    }
}

TEST(Layout, AnOddLastSampleIsIgnored)
{
    const Stereo input = noise(7000);
    for (const bool isInterleaved : {true, false})
    {
        const auto context = loadContext("gains.onnx");
        tonwerk::TonwerkProc even(context, allStems(isInterleaved));
        tonwerk::TonwerkProc odd(context, allStems(isInterleaved));
        std::vector<float> samples = packed(input, isInterleaved);
        const auto expected = even.process(samples, true);
        samples.push_back(1e30F);
        samples.shrink_to_fit(); // so that a sanitizer sees whoever reads on
        EXPECT_EQ(odd.process(samples, true), expected) << isInterleaved;

        tonwerk::TonwerkProc single(context, allStems(isInterleaved));
        EXPECT_TRUE(single.process({0.5F}, false).empty());
        EXPECT_TRUE(single.process({0.5F}, true).empty()) << "half a frame is nothing";
    }
}

} // namespace
