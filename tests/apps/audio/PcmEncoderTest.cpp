// SPDX-License-Identifier: MIT
#include "audio/PcmEncoder.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

namespace
{

using tonwerk::app::gainToFit;
using tonwerk::app::PcmEncoder;
using tonwerk::app::SampleFormat;

std::vector<int> converted(const std::vector<float>& samples, SampleFormat format, double gain = 1.0)
{
    const int unused = format == SampleFormat::Pcm16 ? 16 : 8;
    PcmEncoder encoder(format, gain);
    std::vector<int> values;
    for (const std::int32_t sample : encoder.encode(samples))
    {
        EXPECT_EQ(sample & ((1 << unused) - 1), 0) << "below the format's last bit";
        values.push_back(sample >> unused);
    }
    return values;
}

TEST(PcmEncoder, SamplesOf24BitsAreTheNearestOnes)
{
    const float step = 1.0F / 8388608.0F;
    EXPECT_EQ(converted({0.5F, -1.0F, 0.7F * step, -0.7F * step, 0.0F}, SampleFormat::Pcm24),
              (std::vector<int>{4194304, -8388608, 1, -1, 0}));
    EXPECT_EQ(converted({2.0F, -2.0F, std::numeric_limits<float>::quiet_NaN()}, SampleFormat::Pcm24),
              (std::vector<int>{8388607, -8388608, 0}));
}

TEST(PcmEncoder, DitherKeepsTheMeanAndMakesAnErrorThatDoesNotDependOnTheValue)
{
    constexpr int count = 200000;
    for (const double value : {0.0625, 0.25, 0.5, 1000.375})
    {
        const std::vector<float> samples(count, static_cast<float>(value / 32768.0));
        double sum = 0.0;
        double squares = 0.0;
        for (const int result : converted(samples, SampleFormat::Pcm16))
        {
            sum += result - value;
            squares += (result - value) * (result - value);
        }
        // The variances of two uniform distributions and of the rounding: 1/12 each. Four standard errors.
        EXPECT_NEAR(sum / count, 0.0, 4 * 0.5 / std::sqrt(count)) << value;
        EXPECT_NEAR(squares / count, 0.25, 4 * 0.3 / std::sqrt(count)) << value;
    }
    EXPECT_EQ(converted({0.0F, 0.0F, 0.0F}, SampleFormat::Pcm16), (std::vector<int>{0, 0, 0})) << "silence";
}

TEST(PcmEncoder, TheGainKeepsThePeakFromClippingAndIsNoSmallerThanItMustBe)
{
    EXPECT_EQ(gainToFit(0.99, SampleFormat::Pcm16), 1.0);
    EXPECT_EQ(gainToFit(7.0, SampleFormat::Float32), 1.0);
    const std::vector<float> peaks(10000, 1.7F);
    for (const auto& [format, highest] :
         {std::pair{SampleFormat::Pcm16, 32767}, {SampleFormat::Pcm24, 8388607}})
        for (const int value : converted(peaks, format, gainToFit(static_cast<double>(1.7F), format)))
        {
            ASSERT_LE(value, highest);
            ASSERT_GE(value, highest - 4);
        }
}

} // namespace
