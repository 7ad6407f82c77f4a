// SPDX-License-Identifier: MIT
#include "separation/Resampler.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <span>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace
{

using tonwerk::app::Resampler;

/// A tone that swells and fades (so that its edges have nothing to ring) around the middle of a second. The
/// right side is its mirror image.
std::vector<float> tone(unsigned rate)
{
    std::vector<float> stereo;
    for (unsigned frame = 0; frame < rate; ++frame)
    {
        const double time = static_cast<double>(frame) / rate - 0.5;
        const double value =
            0.5 * std::exp(-time * time / 0.005) * std::sin(2.0 * std::numbers::pi * 1000.0 * time + 0.3);
        stereo.push_back(static_cast<float>(value));
        stereo.push_back(static_cast<float>(-value));
    }
    return stereo;
}

/// In blocks of a length that fits nothing.
std::vector<float> resampled(const std::vector<float>& stereo, unsigned from, unsigned to)
{
    constexpr std::size_t block = 2 * 9999;
    Resampler resampler(from, to);
    std::vector<float> result;
    for (std::size_t place = 0; place < stereo.size(); place += block)
        resampler.feed(std::span(stereo).subspan(place, std::min(block, stereo.size() - place)), result);
    resampler.finish(to, result);
    return result;
}

double largestDifference(const std::vector<float>& left, const std::vector<float>& right)
{
    double largest = 0.0;
    for (std::size_t sample = 0; sample < left.size(); ++sample)
        largest = std::max(largest,
                           std::abs(static_cast<double>(left[sample]) - static_cast<double>(right[sample])));
    return largest;
}

TEST(Resampler, SamplesStandWhereTheyStoodInTime)
{
    // A shift by a hundredth of a sample at 8 kHz would change the tone by 4e-3.
    constexpr double tolerance = 1e-6;
    for (const auto& [from, to] : {std::pair{8000U, 44100U},
                                   {44100U, 8000U},
                                   {11025U, 44100U},
                                   {44100U, 22050U},
                                   {32000U, 44100U},
                                   {44100U, 37800U},
                                   {48000U, 44100U},
                                   {44100U, 48000U},
                                   {96000U, 44100U},
                                   {44100U, 96000U},
                                   {192000U, 44100U},
                                   {44100U, 192000U}})
    {
        const std::vector<float> result = resampled(tone(from), from, to);
        ASSERT_EQ(result.size(), 2U * to) << from << " to " << to;
        EXPECT_LT(largestDifference(result, tone(to)), tolerance) << from << " to " << to;
    }
}

TEST(Resampler, AStreamOfAFewSamplesComesBackWhole)
{
    Resampler resampler(48000, 44100);
    std::vector<float> result;
    resampler.feed(std::vector<float>{0.5F, -0.5F}, result);
    resampler.finish(1, result);
    ASSERT_EQ(result.size(), 2U);
    EXPECT_GT(result[0], 0.3F);
    EXPECT_EQ(result[1], -result[0]);
}

} // namespace
