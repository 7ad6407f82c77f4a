// SPDX-License-Identifier: MIT
#include "analysis/Loudness.h"

#include <cmath>
#include <cstddef>
#include <limits>
#include <numbers>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "analysis/Activity.h"

namespace
{

using tonwerk::app::Activity;
using tonwerk::app::Loudness;

/// Appends a sine of 997 Hz, the same on all channels.
void appendTone(std::vector<float>& samples, double decibels, double seconds, unsigned channels,
                unsigned rate)
{
    const auto frames = static_cast<std::size_t>(seconds * rate);
    const double amplitude = std::pow(10.0, decibels / 20.0);
    for (std::size_t frame = 0; frame < frames; ++frame)
        for (unsigned channel = 0; channel < channels; ++channel)
            samples.push_back(static_cast<float>(
                amplitude * std::sin(2.0 * std::numbers::pi * 997.0 * static_cast<double>(frame) / rate)));
}

std::optional<double> loudnessOf(const std::vector<float>& samples, unsigned channels, unsigned rate)
{
    Loudness loudness(channels, rate);
    loudness.feed(samples);
    return loudness.integrated();
}

// What BS.1770 says of a full-scale sine in one channel, and EBU Tech 3341 (cases 1, 3 and 4) of stereo ones,
// each with the tolerance of 0.1 LU given there.
TEST(Loudness, AgreesWithTheStandardsTestSignals)
{
    constexpr double tolerance = 0.1;
    for (const unsigned rate : {8000U, 44100U, 48000U, 192000U})
    {
        std::vector<float> mono;
        appendTone(mono, 0.0, 5.0, 1, rate);
        EXPECT_NEAR(loudnessOf(mono, 1, rate).value(), -3.01, tolerance) << rate;
        std::vector<float> stereo;
        appendTone(stereo, -23.0, 5.0, 2, rate);
        EXPECT_NEAR(loudnessOf(stereo, 2, rate).value(), -23.0, tolerance) << rate;
    }
    std::vector<float> gated;
    appendTone(gated, -72.0, 10.0, 2, 48000);
    appendTone(gated, -36.0, 10.0, 2, 48000);
    appendTone(gated, -23.0, 60.0, 2, 48000);
    appendTone(gated, -36.0, 10.0, 2, 48000);
    appendTone(gated, -72.0, 10.0, 2, 48000);
    EXPECT_NEAR(loudnessOf(gated, 2, 48000).value(), -23.0, tolerance);
}

TEST(Loudness, WeightsFrequenciesAsTheStandardDoes)
{
    // The filters' gains of BS.1770 at 48 kHz, against that at 997 Hz: highs 3.3 dB up, 38 Hz 6.7 dB down.
    for (const auto& [frequency, gain] : {std::pair{10000.0, 3.34}, {38.0, -6.73}})
    {
        std::vector<float> samples;
        for (int frame = 0; frame < 48000 * 5; ++frame)
            samples.push_back(
                static_cast<float>(std::sin(2.0 * std::numbers::pi * frequency * frame / 48000.0)));
        EXPECT_NEAR(loudnessOf(samples, 1, 48000).value(), -3.01 + gain, 0.1) << frequency;
    }
}

TEST(Loudness, WhatIsTooShortOrTooSoftHasNone)
{
    std::vector<float> samples;
    appendTone(samples, -6.0, 0.35, 2, 48000);
    EXPECT_FALSE(loudnessOf(samples, 2, 48000).has_value());
    samples.assign(samples.size() * 20, 0.0F);
    EXPECT_FALSE(loudnessOf(samples, 2, 48000).has_value());
    samples.front() = std::numeric_limits<float>::quiet_NaN();
    EXPECT_FALSE(loudnessOf(samples, 2, 48000).has_value());
}

TEST(Activity, TellsWhenATrackSounds)
{
    constexpr unsigned rate = 22050;
    std::vector<float> samples;
    for (const auto& [decibels, seconds] : {std::pair{-120.0, 1.0}, // silence
                                            {-20.0, 1.0},
                                            {-120.0, 0.4}, // a pause that is too short
                                            {-40.0, 1.0},
                                            {-120.0, 1.0},
                                            {-55.0, 1.0}, // too soft
                                            {-20.0, 0.5}})
        appendTone(samples, decibels, seconds, 2, rate);
    Activity activity(2, rate);
    activity.feed(samples);
    const auto ranges = activity.ranges();
    ASSERT_EQ(ranges.size(), 2U);
    constexpr double window = 0.051;
    EXPECT_NEAR(ranges[0].first, 1.0, window);
    EXPECT_NEAR(ranges[0].second, 3.4, window);
    EXPECT_NEAR(ranges[1].first, 5.4, window);
    EXPECT_NEAR(ranges[1].second, 5.9, window);
}

} // namespace
