// SPDX-License-Identifier: MIT
#include "separation/RateConversion.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <span>
#include <vector>

#include <gtest/gtest.h>

#include "separation/Stems.h"

namespace
{

using tonwerk::app::modelStemCount;
using tonwerk::app::RateConversion;
using tonwerk::app::stemNames;
using tonwerk::app::StemSet;
using Stems = RateConversion::Stems;

constexpr unsigned modelRate = 44100;

std::vector<float> noise(std::size_t frames)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<float> sample(-0.5F, 0.5F);
    std::vector<float> stereo(2 * frames);
    std::generate(stereo.begin(), stereo.end(), [&] { return sample(random); });
    return stereo;
}

/// Half of the input as vocals, a quarter as bass.
Stems modelsAnswer(const std::vector<float>& input)
{
    Stems stems(stemNames.size(), std::vector<float>(input.size(), 0.0F));
    for (std::size_t sample = 0; sample < input.size(); ++sample)
    {
        stems[0][sample] = 0.5F * input[sample];
        stems[5][sample] = 0.25F * input[sample];
    }
    return stems;
}

void append(Stems& stems, const Stems& more)
{
    for (std::size_t stem = 0; stem < stems.size(); ++stem)
        stems[stem].insert(stems[stem].end(), more[stem].begin(), more[stem].end());
}

/// The stems of a song, for which the model wants 5,000 frames at a time.
Stems stemsOf(const std::vector<float>& song, unsigned rate, RateConversion& conversion)
{
    constexpr std::size_t modelBlock = 2 * 5000;
    std::vector<float> waiting;
    std::vector<float> next;
    Stems stems(stemNames.size());
    const auto feedModel = [&](bool atEnd)
    {
        waiting.insert(waiting.end(), next.begin(), next.end());
        const std::size_t count = atEnd ? waiting.size() : waiting.size() / modelBlock * modelBlock;
        const auto end = waiting.begin() + static_cast<std::ptrdiff_t>(count);
        append(stems, conversion.fromModel(modelsAnswer({waiting.begin(), end})));
        waiting.erase(waiting.begin(), end);
    };
    const std::size_t block = 2 * static_cast<std::size_t>(rate / 10 + 1);
    for (std::size_t place = 0; place < song.size(); place += block)
    {
        conversion.toModel(std::span(song).subspan(place, std::min(block, song.size() - place)), next);
        feedModel(false);
    }
    conversion.endSong(next);
    feedModel(true);
    append(stems, conversion.finish());
    return stems;
}

TEST(RateConversion, StemsAndResidualAddUpToTheSongAtItsOwnRate)
{
    const StemSet asked(0b100001);
    for (const unsigned rate : {8000U, 22050U, 48000U, 96000U, 192000U})
    {
        // White noise: the residual has to hold all that the model's rate has no place for.
        const std::vector<float> song = noise(rate + 7);
        RateConversion conversion(rate, modelRate, asked);
        const Stems stems = stemsOf(song, rate, conversion);
        double largest = 0.0;
        double vocals = 0.0;
        for (std::size_t stem = 0; stem < stems.size(); ++stem)
            ASSERT_EQ(stems[stem].size(), song.size()) << rate;
        for (std::size_t sample = 0; sample < song.size(); ++sample)
        {
            double sum = -static_cast<double>(song[sample]);
            for (std::size_t stem = 0; stem <= modelStemCount; ++stem)
                sum += static_cast<double>(stems[stem][sample]);
            largest = std::max(largest, std::abs(sum));
            vocals = std::max(vocals, static_cast<double>(std::abs(stems[0][sample])));
        }
        EXPECT_LT(largest, 1e-6) << rate;
        EXPECT_GT(vocals, 0.1) << rate;
        EXPECT_EQ(*std::max_element(stems[1].begin(), stems[1].end()), 0.0F) << "not asked for";
    }
}

TEST(RateConversion, SamplesThatAreNotFiniteStayInTheResidual)
{
    std::vector<float> song = noise(20000);
    song[5000] = std::numeric_limits<float>::quiet_NaN();
    song[7001] = std::numeric_limits<float>::infinity();
    RateConversion conversion(48000, modelRate, StemSet(1));
    const Stems stems = stemsOf(song, 48000, conversion);
    EXPECT_EQ(conversion.nonFiniteSamples(), 2U);
    for (std::size_t stem = 0; stem < stems.size(); ++stem)
        for (std::size_t sample = 0; sample < song.size(); ++sample)
            ASSERT_EQ(std::isfinite(stems[stem][sample]),
                      stem != modelStemCount || std::isfinite(song[sample]));
}

} // namespace
