// SPDX-License-Identifier: MIT
// A model whose gains sum to 1 gives the input back as the mix, sample for sample.

#include <cstddef>
#include <vector>

#include <gtest/gtest.h>

#include "support/Stream.h"

namespace
{

// Away from the ends only rounding is left: 1.5e-7 was seen, with samples of at most 0.5. At the ends the
// mirror image or the silence that leads in and out bends the signal, and the bin at half the sample rate,
// which is dropped, holds some of that bend. A stream of one sample of 0.5 is all bend and loses 0.5 / 4096
// = 1.2e-4; twice that is allowed.
constexpr float toleranceInside = 1e-6F;
constexpr float toleranceAtEnds = 2.5e-4F;
constexpr std::size_t endLength = 4096;

class StreamOfLength : public ::testing::TestWithParam<std::size_t>
{
};

TEST_P(StreamOfLength, ComesBackWholeAndInPlace)
{
    const Stereo input = noise(GetParam());
    const StreamResult result = separate(loadContext("gains.onnx"), input);

    EXPECT_LE(largestDifference(result.stems[mix], input), toleranceAtEnds);
    if (input.size() > 2 * endLength)
    {
        EXPECT_LE(largestDifference(result.stems[mix], input, endLength, input.size() - endLength),
                  toleranceInside);
    }
    for (std::size_t i = 0; i < modelGains.size(); ++i)
        EXPECT_LE(largestDifference(result.stems[i], scaled(input, modelGains[i])), toleranceAtEnds)
            << "stem " << i;
    EXPECT_LE(largestDifference(result.stems[residual], silence(input.size())), toleranceAtEnds);
}

INSTANTIATE_TEST_SUITE_P(Stream, StreamOfLength,
                         ::testing::Values(1, 2, 1023, 1024, 1025, 4095, 4096, 4097, 50000, 257023, 257024,
                                           257025, 300000, 1200000),
                         ::testing::PrintToStringParamName());

// At both ends of the stream and around the joins of its chunks.
TEST(Stream, ImpulsesStayWhereTheyWere)
{
    constexpr std::size_t length = 800000;
    Stereo input = silence(length);
    const std::vector<std::size_t> left{0,      8191,   248831, 252927, 257023, 261120,
                                        499712, 503808, 507904, 512000, 700001, length - 1};
    for (const std::size_t position : left)
        input.left[position] = 1.0F;
    input.right[252928] = 1.0F;

    const StreamResult result = separate(loadContext("gains.onnx"), input);
    // An impulse has one part in 4096 at half the sample rate, and the bin there is dropped: each impulse
    // loses and strews that much. At the very ends the mirror image doubles it.
    EXPECT_LE(largestDifference(result.stems[mix], input, 4096, length - 4096), 1.1F / 4096);
    EXPECT_LE(largestDifference(result.stems[mix], input), 2.2F / 4096);
}

} // namespace
