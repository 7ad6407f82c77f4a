// Which stems come back, in which order, and how samples are laid out.

#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "boundary/Streaming.h"

namespace
{

/// Switches by bit, in the order of the stems.
tonwerk::TonwerkProcConfig configWith(unsigned switches, bool interleaved = true)
{
    tonwerk::TonwerkProcConfig config{};
    config.vocals = switches >> vocals & 1U;
    config.drum = switches >> drum & 1U;
    config.piano = switches >> piano & 1U;
    config.acousticGuitar = switches >> acousticGuitar & 1U;
    config.electricGuitar = switches >> electricGuitar & 1U;
    config.bass = switches >> bass & 1U;
    config.interleaved = interleaved;
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
        const bool selected = (switches >> i & 1U) != 0;
        sum += selected ? modelGains[i] : 0.0F;
        EXPECT_LE(differenceToScaled(result.stems[i], selected ? modelGains[i] : 0.0F, input),
                  selected ? tolerance : 0.0F)
            << "stem " << i << " of switches " << switches;
    }
    EXPECT_LE(differenceToScaled(result.stems[mix], sum, input), switches == 0 ? 0.0F : tolerance)
        << switches;
    EXPECT_LE(differenceToScaled(result.stems[residual], 1.0F - sum, input), switches == 0 ? 0.0F : tolerance)
        << switches;
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
    first.feedAll(input);
    expectStems(first.result(), 1U << bass, input);

    const auto otherContext = loadContext("gains.onnx");
    Stream elsewhere(otherContext, configWith(allSwitches));
    const Stream third(context, configWith(0));
    elsewhere.feedAll(input);
    expectStems(elsewhere.result(), allSwitches, input);
}

TEST(Stream, TwoOfThemInTurnsDoNotDisturbEachOther)
{
    const Stereo one = noise(600000, testSeed());
    const Stereo two = noise(600000, testSeed() + 1);
    const auto context = loadContext("neighbours.onnx");
    Stream first(context);
    Stream second(context);
    for (std::size_t position = 0; position < one.size(); position += 120000)
    {
        first.feed(slice(one, position, 120000), position + 120000 == one.size());
        second.feed(slice(two, position, 120000), position + 120000 == two.size());
    }
    for (auto* stream : {&first, &second})
    {
        Stream alone(context);
        for (std::size_t position = 0; position < one.size(); position += 120000)
            alone.feed(slice(stream == &first ? one : two, position, 120000),
                       position + 120000 == one.size());
        for (std::size_t i = 0; i < stemCount; ++i)
            EXPECT_EQ(largestDifference(stream->stem(i), alone.stem(i)), 0) << "stem " << i;
    }
}

TEST(Layout, InterleavedAndPlanarGiveTheSameSamples)
{
    const Stereo input = noise(520000);
    const auto context = loadContext("neighbours.onnx");
    const StreamResult interleaved = separate(context, input, allStems(true));
    const StreamResult planar = separate(context, input, allStems(false));
    EXPECT_EQ(interleaved.lengths, planar.lengths);
    for (std::size_t i = 0; i < stemCount; ++i)
    {
        ASSERT_EQ(interleaved.stems[i].size(), input.size());
        EXPECT_EQ(largestDifference(interleaved.stems[i], planar.stems[i]), 0) << "stem " << i;
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
        EXPECT_EQ(odd.process(samples, true), expected) << isInterleaved;

        tonwerk::TonwerkProc single(context, allStems(isInterleaved));
        EXPECT_TRUE(single.process({0.5F}, false).empty());
        EXPECT_TRUE(single.process({0.5F}, true).empty()) << "half a frame is nothing";
    }
}

TEST(ScrambledModel, WorksLikeThePlainOne)
{
    const Stereo input = noise(20000);
    const StreamResult plain = separate(loadContext("gains.onnx"), input);
    const std::string allBytes = []
    {
        std::string key;
        for (int i = 0; i < 256; ++i)
            key += static_cast<char>(i);
        return key;
    }();
    for (const std::string& key : {std::string("k"), std::string("\0\xFF\x80", 3), allBytes,
                                   std::string(5000, 'x') + "longer than the model"})
    {
        const StreamResult result = separate(loadContext("gains.onnx", key), input);
        for (std::size_t i = 0; i < stemCount; ++i)
            EXPECT_EQ(largestDifference(result.stems[i], plain.stems[i]), 0)
                << "stem " << i << ", key of " << key.size();
    }
}

} // namespace
