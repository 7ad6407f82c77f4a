// When results come and how long they are, in frames per channel.

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "boundary/Streaming.h"

namespace
{

using Lengths = std::vector<std::size_t>;

class StreamLengths : public ::testing::Test
{
protected:
    std::size_t feed(std::size_t length, bool eof = false) { return stream.feed(silence(length), eof); }

    Stream stream{loadContext("gains.onnx")};
};

TEST_F(StreamLengths, MaxInputSizeShrinksWithTheFirstModelRun)
{
    EXPECT_EQ(stream.processor().maxInputSize(), 257024U);
    EXPECT_EQ(feed(257023), 0U);
    EXPECT_EQ(stream.processor().maxInputSize(), 257024U);
    EXPECT_EQ(feed(1), 252928U);
    EXPECT_EQ(stream.processor().maxInputSize(), 254976U);
    EXPECT_EQ(feed(0, true), 4096U);
    EXPECT_EQ(stream.processor().maxInputSize(), 254976U);
}

TEST_F(StreamLengths, BlocksOfMaxInputSizeKeep4096FramesBack)
{
    EXPECT_EQ(feed(257024), 252928U);
    EXPECT_EQ(feed(254976), 254976U);
    EXPECT_EQ(feed(254976), 254976U);
    EXPECT_EQ(feed(0), 0U);
    EXPECT_EQ(feed(250879), 0U); // with the 4096 one frame short of 254,976
    EXPECT_EQ(feed(1), 250880U);
    EXPECT_EQ(feed(0, true), 4096U);
}

TEST_F(StreamLengths, LongerBlocksFillTheModelToItsRim)
{
    EXPECT_EQ(feed(261120), 257024U);
    EXPECT_EQ(feed(259072), 259072U);
    EXPECT_EQ(feed(259072), 259072U);
    EXPECT_EQ(feed(0, true), 4096U);
}

TEST_F(StreamLengths, WhatAFirstBlockHasTooMuchWaitsForTheNextCall)
{
    EXPECT_EQ(feed(300000), 257024U); // 42,976 stay
    EXPECT_EQ(feed(211999), 0U);      // one frame short of 254,976
    EXPECT_EQ(feed(1), 250880U);
    EXPECT_EQ(feed(0, true), 4096U);
}

TEST_F(StreamLengths, SmallBlocksGiveNothingUntilEnoughIsHeld)
{
    std::size_t calls = 1;
    while (feed(512) == 0)
        ++calls;
    EXPECT_EQ(calls, 502U); // 257,024 / 512
    EXPECT_EQ(stream.result().lengths.back(), 252928U);
    calls = 1;
    while (feed(512) == 0)
        ++calls;
    EXPECT_EQ(calls, 490U); // 4,096 are held already, 250,880 / 512 more
    EXPECT_EQ(stream.result().lengths.back(), 250880U);
}

TEST_F(StreamLengths, EofWithNothingHeldGivesNoVectors)
{
    EXPECT_TRUE(stream.processor().process({}, true).empty());
    EXPECT_TRUE(stream.processor().process({}, true).empty());
}

TEST_F(StreamLengths, ASecondEofGivesNoVectors)
{
    EXPECT_EQ(feed(5000, true), 5000U);
    EXPECT_TRUE(stream.processor().process({}, true).empty());
    EXPECT_TRUE(stream.processor().process({}, false).empty());
}

// More than the padded last chunk can carry: as many model runs as it takes, one result.
TEST_F(StreamLengths, EofReturnsAllThatIsHeldHoweverMuch)
{
    EXPECT_EQ(feed(200000), 0U);
    EXPECT_EQ(feed(200000, true), 400000U);

    for (const std::size_t length : {257025U, 260000U, 261120U, 261121U, 500001U, 514048U})
    {
        Stream other(loadContext("gains.onnx"));
        EXPECT_EQ(other.feed(silence(length), true), length);
    }
    for (const std::size_t length : {254976U, 258048U, 258049U, 260096U, 400001U, 509952U})
    {
        Stream other(loadContext("gains.onnx"));
        EXPECT_EQ(other.feed(silence(257024)), 252928U);
        EXPECT_EQ(other.feed(silence(length), true), 4096 + length);
    }
}

// Audio moves on in hops of 1024 frames. A chunk taken from a total that is no whole number of hops loses the
// rest of the division: hosts have to keep to the block-size rule.
TEST_F(StreamLengths, BlocksAgainstTheBlockSizeRuleLoseUpToAHopPerChunk)
{
    std::size_t fed = 0;
    while (feed(1000) == 0)
        fed += 1000;
    fed += 1000;
    EXPECT_EQ(fed, 258000U);
    // 258,000 = 251 * 1024 + 976: the chunk gives 251 hops less the 4096 that stay, and takes 976 frames
    // more.
    EXPECT_EQ(stream.result().lengths.back(), 252928U);
    EXPECT_EQ(feed(0, true), 4096U);
    EXPECT_EQ(stream.stem(mix).size(), fed - 976);
}

TEST_F(StreamLengths, ABlockThatDoesNotFitIsRefusedAndTheStreamGoesOn)
{
    const Stereo signal = noise(300000);
    Stream disturbed(loadContext("gains.onnx"));
    const auto refused = [&](std::size_t length)
    {
        try
        {
            disturbed.feed(silence(length));
        }
        catch (const std::runtime_error& failure)
        {
            return std::string(failure.what());
        }
        return std::string("no exception");
    };
    EXPECT_EQ(refused(514049), "Buffer overflow: cannot accept chunk of size 514049");
    disturbed.feed(slice(signal, 0, 100000));
    EXPECT_EQ(refused(414049), "Buffer overflow: cannot accept chunk of size 414049");
    EXPECT_EQ(refused(1000000), "Buffer overflow: cannot accept chunk of size 1000000");
    disturbed.feed(slice(signal, 100000, 200000), true);

    Stream undisturbed(loadContext("gains.onnx"));
    undisturbed.feed(slice(signal, 0, 100000));
    undisturbed.feed(slice(signal, 100000, 200000), true);
    for (std::size_t i = 0; i < stemCount; ++i)
        EXPECT_EQ(largestDifference(disturbed.stem(i), undisturbed.stem(i)), 0) << "stem " << i;
}

} // namespace
