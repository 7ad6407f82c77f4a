// SPDX-License-Identifier: MIT
// When results come and how long they are, in frames per channel.

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/Stream.h"

namespace
{

/// One call: what is fed, and how many frames come back (or no vectors).
struct Call
{
    std::size_t frames;
    bool eof;
    std::optional<std::size_t> returned;
};

using Calls = std::vector<Call>;

class StreamCalls : public ::testing::TestWithParam<Calls>
{
};

constexpr std::nullopt_t nothing = std::nullopt;

INSTANTIATE_TEST_SUITE_P(
    Stream, StreamCalls,
    ::testing::Values(
        // Blocks of maxInputSize(), then an empty end, and another one.
        Calls{{257024, false, 252928},
              {254976, false, 254976},
              {254976, false, 254976},
              {0, false, nothing},
              {0, true, 4096},
              {0, true, nothing},
              {0, false, nothing}},
        // The largest chunks.
        Calls{{261120, false, 257024}, {259072, false, 259072}, {259072, false, 259072}, {0, true, 4096}},
        // One frame short of the threshold, at first and later.
        Calls{{257023, false, nothing},
              {1, false, 252928},
              {250879, false, nothing},
              {1, false, 250880},
              {1, true, 4097}},
        // More than a chunk takes stays for later calls, down to less than the threshold.
        Calls{{514048, false, 257024}, {0, false, 252928}, {0, false, nothing}, {0, true, 4096}},
        Calls{{300000, false, 257024}, {211999, false, nothing}, {1, false, 250880}, {0, true, 4096}},
        // Everything that is held comes back at the end, in as many passes as it takes.
        Calls{{200000, false, nothing}, {200000, true, 400000}, {0, true, nothing}},
        Calls{{257025, true, 257025}}, Calls{{261120, true, 261120}}, Calls{{261121, true, 261121}},
        Calls{{514048, true, 514048}}, Calls{{257024, false, 252928}, {258048, true, 262144}},
        Calls{{257024, false, 252928}, {258049, true, 262145}},
        Calls{{261120, false, 257024}, {509952, true, 514048}},
        // No stream at all.
        Calls{{0, false, nothing}, {0, true, nothing}, {0, true, nothing}}));

TEST_P(StreamCalls, ReturnExactlyTheseLengths)
{
    Stream stream(loadContext("gains.onnx"));
    std::uint64_t wanted = 257024;
    for (const Call& call : GetParam())
    {
        EXPECT_EQ(stream.processor().maxInputSize(), wanted);
        const auto stems = stream.processor().process(std::vector<float>(2 * call.frames), call.eof);
        EXPECT_EQ(stems.size(), call.returned ? 8U : 0U);
        for (const auto& stem : stems)
            EXPECT_EQ(stem.size(), 2 * call.returned.value_or(0));
        wanted = call.returned ? 254976 : wanted; // once the model has run
    }
}

TEST(Stream, ABlockThatDoesNotFitIsRefusedAndTheStreamGoesOn)
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
    disturbed.feed(slice(signal, 100000, 200000), true);

    Stream undisturbed(loadContext("gains.onnx"));
    undisturbed.feed(signal, true);
    for (std::size_t i = 0; i < stemCount; ++i)
        EXPECT_EQ(largestDifference(disturbed.stem(i), undisturbed.stem(i)), 0) << "stem " << i;
}

} // namespace
