// SPDX-License-Identifier: MIT
#include "separation/NullTest.h"

#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "separation/Stems.h"

namespace
{

using tonwerk::app::NullTest;
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

TEST(NullTest, StemsThatAddUpToTheInputLeaveNothingHoweverTheBlocksAreCut)
{
    NullTest test;
    test.feed(Samples{0.5F, -1.0F, 0.25F});
    test.feed(Samples{2.0F});
    test.compare(resultOf({0.25F}, {0.25F}));
    test.feed(Samples{-0.125F});
    test.compare(resultOf({-1.5F, 0.25F, 1.0F, 0.0F}, {0.5F, 0.0F, 1.0F, -0.125F}));
    EXPECT_EQ(test.peak(), 0.0);
    EXPECT_EQ(test.nonFiniteSamples(), 0U);
}

TEST(NullTest, TheLargestDifferenceStays)
{
    NullTest test;
    test.feed(Samples{0.5F, 0.5F, 0.5F});
    test.compare(resultOf({0.5F, 0.25F}, {0.0F, 0.0F}));
    test.compare(resultOf({0.625F}, {0.0F}));
    EXPECT_EQ(test.peak(), 0.25);
}

TEST(NullTest, StemsThatAreOneSampleLateDoNotPass)
{
    NullTest test;
    test.feed(Samples{0.0F, 1.0F, 0.0F, 0.0F});
    test.compare(resultOf({0.0F, 0.0F, 1.0F, 0.0F}, Samples(4, 0.0F)));
    EXPECT_EQ(test.peak(), 1.0);
}

TEST(NullTest, LeavesOutSamplesOfTheInputThatAreNotFiniteButNoOthers)
{
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    NullTest test;
    test.feed(Samples{nan, 0.5F, std::numeric_limits<float>::infinity(), 0.5F, 0.5F});
    test.compare(resultOf({0.0F, 0.5F, 0.0F}, {nan, 0.0F, nan}));
    EXPECT_EQ(test.peak(), 0.0);
    EXPECT_EQ(test.nonFiniteSamples(), 2U);
    test.compare(resultOf({nan, 0.5F}, {0.0F, 0.0F}));
    EXPECT_EQ(test.peak(), std::numeric_limits<double>::infinity());
}

} // namespace
