// SPDX-License-Identifier: MIT
#include "separation/NullMeter.h"

#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "separation/Stems.h"

namespace
{

using tonwerk::app::NullMeter;
using Samples = std::vector<float>;

/// A result of the library: vocals and residual as given, the other stems silent, the mix unlike anything.
std::vector<Samples> resultOf(const Samples& vocals, const Samples& residual)
{
    std::vector<Samples> stems(tonwerk::app::stemNames.size(), Samples(vocals.size(), 0.0F));
    stems.front() = vocals;
    stems.at(tonwerk::app::modelStemCount) = residual;
    stems.back().assign(vocals.size(), 99.0F);
    return stems;
}

TEST(NullMeter, StemsThatAddUpToTheInputLeaveNothingHoweverTheBlocksAreCut)
{
    NullMeter meter;
    meter.feed(Samples{0.5F, -1.0F, 0.25F});
    meter.feed(Samples{2.0F});
    meter.compare(resultOf({0.25F}, {0.25F}));
    meter.feed(Samples{-0.125F});
    meter.compare(resultOf({-1.5F, 0.25F, 1.0F, 0.0F}, {0.5F, 0.0F, 1.0F, -0.125F}));
    EXPECT_EQ(meter.peak(), 0.0);
    EXPECT_EQ(meter.nonFiniteSamples(), 0U);
}

TEST(NullMeter, TheLargestDifferenceStays)
{
    NullMeter meter;
    meter.feed(Samples{0.5F, 0.5F, 0.5F});
    meter.compare(resultOf({0.5F, 0.25F}, {0.0F, 0.0F}));
    meter.compare(resultOf({0.625F}, {0.0F}));
    EXPECT_EQ(meter.peak(), 0.25);
}

TEST(NullMeter, StemsThatAreOneSampleLateDoNotPass)
{
    NullMeter meter;
    meter.feed(Samples{0.0F, 1.0F, 0.0F, 0.0F});
    meter.compare(resultOf({0.0F, 0.0F, 1.0F, 0.0F}, Samples(4, 0.0F)));
    EXPECT_EQ(meter.peak(), 1.0);
}

TEST(NullMeter, LeavesOutSamplesOfTheInputThatAreNotFiniteButNoOthers)
{
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    NullMeter meter;
    meter.feed(Samples{nan, 0.5F, std::numeric_limits<float>::infinity(), 0.5F, 0.5F});
    meter.compare(resultOf({0.0F, 0.5F, 0.0F}, {nan, 0.0F, nan}));
    EXPECT_EQ(meter.peak(), 0.0);
    EXPECT_EQ(meter.nonFiniteSamples(), 2U);
    meter.compare(resultOf({nan, 0.5F}, {0.0F, 0.0F}));
    EXPECT_EQ(meter.peak(), std::numeric_limits<double>::infinity());
}

} // namespace
