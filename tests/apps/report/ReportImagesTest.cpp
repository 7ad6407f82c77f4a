// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <random>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "report/Spectrogram.h"
#include "report/Waveform.h"

namespace
{

using tonwerk::app::Color;
using tonwerk::app::Image;
using tonwerk::app::Spectrogram;
using tonwerk::app::Waveform;
using Samples = std::vector<float>;

constexpr unsigned rate = 44100;
constexpr std::size_t width = 200;

/// Feeds stereo samples in blocks of frames.
template <typename Track>
void feedInBlocks(Track& track, std::span<const float> stereo, std::size_t frames)
{
    for (; stereo.size() > 2 * frames; stereo = stereo.subspan(2 * frames))
        track.feed(stereo.first(2 * frames));
    track.feed(stereo);
}

Samples sine(double frequency, std::size_t frames)
{
    Samples stereo;
    for (std::size_t frame = 0; frame < frames; ++frame)
        stereo.resize(stereo.size() + 2, static_cast<float>(std::sin(2.0 * std::numbers::pi * frequency *
                                                                     static_cast<double>(frame) / rate)));
    return stereo;
}

/// The brightest row from below in a column of the image.
std::size_t brightestRow(Image& image, std::size_t column)
{
    std::size_t brightest = 0;
    const auto brightness = [&](std::size_t rowFromBelow)
    {
        const Color color = image.at(column, image.height() - 1 - rowFromBelow);
        return color.red + color.green + color.blue;
    };
    for (std::size_t row = 1; row < image.height(); ++row)
        if (brightness(row) > brightness(brightest))
            brightest = row;
    return brightest;
}

/// The bytes of a column: lowest, highest and RMS value, 127 being the peak.
std::array<int, 3> columnAt(const Waveform& waveform, std::size_t column)
{
    const std::string bytes = waveform.columnBytes();
    const auto at = [&](std::size_t place)
    { return static_cast<int>(static_cast<signed char>(bytes.at(place))); };
    return {at(3 * column), at(3 * column + 1), at(3 * column + 2)};
}

TEST(Waveform, OneLoudSampleIsSeenInItsPlaceHoweverLongTheTrack)
{
    // From one column to all of them, twice over.
    for (const std::size_t frames : {100U, 5000U, 40000000U})
    {
        Samples stereo(2 * frames, 0.0F);
        const std::size_t place = frames / 4 * 3;
        stereo[2 * place + 1] = -0.75F;
        Waveform waveform;
        feedInBlocks(waveform, stereo, 70000);
        EXPECT_EQ(waveform.peak(), 0.75F);
        EXPECT_NEAR(waveform.rms(), 0.75 / std::sqrt(2.0 * static_cast<double>(frames)), 1e-9);
        const std::size_t column = place / waveform.columnFrames();
        const std::size_t columns = (frames + waveform.columnFrames() - 1) / waveform.columnFrames();
        EXPECT_EQ(waveform.columnBytes().size(), 3 * columns);
        EXPECT_LE(columns, 65536U) << "its memory does not grow";
        EXPECT_EQ(columnAt(waveform, column).at(0), -127) << frames << " frames";
        EXPECT_EQ(columnAt(waveform, column).at(1), 0);
        EXPECT_GE(columnAt(waveform, column).at(2), 1);
        const std::string bytes = waveform.columnBytes();
        EXPECT_EQ(std::count(bytes.begin(), bytes.end(), '\0'),
                  static_cast<std::ptrdiff_t>(bytes.size() - 2));
    }
}

TEST(Waveform, HowTheBlocksAreCutDoesNotShowAndWhatIsNoNumberCountsAsZero)
{
    std::mt19937 random(1);
    Samples stereo(400000);
    for (float& sample : stereo)
        sample = static_cast<float>(random()) / static_cast<float>(std::mt19937::max()) - 0.5F;
    stereo[1234] = std::nanf("");
    stereo[4321] = -HUGE_VALF;
    Waveform whole;
    whole.feed(stereo);
    Waveform cut;
    feedInBlocks(cut, stereo, 777);
    EXPECT_LE(whole.peak(), 0.5F);
    EXPECT_EQ(whole.columnBytes(), cut.columnBytes());
    // Even noise: an RMS value of 1 / sqrt(3) of the peak.
    EXPECT_NEAR(columnAt(whole, 5).at(2), 127.0 / std::sqrt(3.0), 4.0);
}

TEST(Spectrogram, ASineLiesInTheRowOfItsFrequencyWithItsPower)
{
    const double octaves = std::log2(Spectrogram::highestFrequency(rate) / Spectrogram::lowestFrequency);
    for (const double frequency : {60.0, 440.0, 5000.0, 15000.0})
    {
        Spectrogram spectrogram(rate);
        spectrogram.feed(sine(frequency, rate));
        spectrogram.finish();
        // 1 for each of two channels. A Hann window's main lobe has fallen by 1.5 dB between two bins, and
        // the start and the end of the sine add a little.
        EXPECT_NEAR(spectrogram.peakPower(), 1.7, 0.4) << frequency;
        const double row = std::log2(frequency / Spectrogram::lowestFrequency) / octaves *
                           static_cast<double>(Spectrogram::rowCount);
        // The lowest rows are narrower than the transform's bins.
        Image image = spectrogram.draw(width, 2.0);
        EXPECT_NEAR(static_cast<double>(brightestRow(image, width / 2)), row - 0.5, 2.0) << frequency;
    }
}

TEST(Spectrogram, SoundIsSeenWhenItIsHeardHoweverLongTheTrack)
{
    // The longer one fills all columns, twice over.
    for (const std::size_t seconds : {4U, 120U})
    {
        Samples stereo(2 * seconds * rate, 0.0F);
        const std::size_t start = stereo.size() / 8 * 5;
        const Samples burst = sine(1000.0, seconds * rate / 8);
        std::copy(burst.begin(), burst.end(), stereo.begin() + static_cast<std::ptrdiff_t>(start));
        Spectrogram spectrogram(rate);
        feedInBlocks(spectrogram, stereo, 50000);
        spectrogram.finish();
        Image image = spectrogram.draw(width, spectrogram.peakPower());
        const std::size_t row = Spectrogram::rowCount - 1 - brightestRow(image, width * 11 / 16);
        // In the row of the sine: dark before and after, but for the window's width on both sides.
        constexpr std::size_t margin = width / 40;
        EXPECT_GT(image.at(width * 5 / 8 + margin, row).red, 200) << seconds << " s";
        EXPECT_GT(image.at(width * 6 / 8 - margin, row).red, 200);
        EXPECT_LT(image.at(width * 5 / 8 - margin, row).red, 20);
        EXPECT_LT(image.at(width * 6 / 8 + margin, row).red, 20);
    }
}

TEST(Spectrogram, SamplesNearTheLargestFloatHavePowersThatAreNumbers)
{
    Spectrogram spectrogram(rate);
    Samples loud = sine(440.0, rate);
    for (float& sample : loud)
        sample *= 3e38F;
    spectrogram.feed(loud);
    spectrogram.finish();
    EXPECT_GT(spectrogram.peakPower(), 1e20);
    EXPECT_TRUE(std::isfinite(spectrogram.peakPower()));
}

TEST(Spectrogram, SilenceIsDrawn)
{
    Spectrogram spectrogram(8000);
    spectrogram.finish();
    EXPECT_EQ(spectrogram.peakPower(), 0.0);
    EXPECT_EQ(spectrogram.draw(width, 1.0).at(0, 0).alpha, 255);
}

} // namespace
