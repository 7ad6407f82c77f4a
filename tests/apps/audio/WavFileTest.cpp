// SPDX-License-Identifier: MIT
#include "audio/WavFile.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "audio/SndfileDecoder.h"
#include "support/ScratchFolder.h"

namespace
{

using tonwerk::app::FileSource;
using tonwerk::app::SampleFormat;
using tonwerk::app::SndfileDecoder;
using tonwerk::app::WavFile;

std::string bytesOf(const std::filesystem::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

TEST(WavFile, CanBePlayedAsFarAsItHasBeenWritten)
{
    const ScratchFolder folder;
    const auto path = folder.path() / std::u8string(u8"\u6b4c.wav.part");
    WavFile file(path, SampleFormat::Float32, 2, 48000, 0);
    const std::vector<float> samples{0.1F, -0.2F, 3.0F, 1e-9F, std::numeric_limits<float>::denorm_min(),
                                     -0.0F};
    for (std::uint64_t blocks = 1; blocks < 4; ++blocks)
    {
        file.write(samples);
        EXPECT_EQ(bytesOf(path).substr(0, 4), "RIFF");
        FileSource source(path);
        const auto decoder = SndfileDecoder::open(source);
        ASSERT_NE(decoder, nullptr);
        EXPECT_EQ(decoder->statedFrames(), 3 * blocks);
        std::vector<float> read(6 * blocks);
        EXPECT_EQ(decoder->read(read.data(), 4 * blocks), 3 * blocks);
        EXPECT_EQ(std::vector<float>(read.end() - 6, read.end()), samples);
    }
    file.close();
    EXPECT_EQ(bytesOf(path).substr(0, 4), "RIFF");
}

TEST(WavFile, HoldsTheVeryBitsOfFixedPointSamples)
{
    const ScratchFolder folder;
    for (const auto& [format, bytes] : {std::pair{SampleFormat::Pcm16, 2}, {SampleFormat::Pcm24, 3}})
    {
        const auto path = folder.path() / (std::to_string(bytes) + ".wav");
        WavFile file(path, format, 1, 44100, 6);
        const int unused = 32 - 8 * bytes;
        std::vector<std::int32_t> samples;
        for (const int value : {0, 1, -1, 12345, (1 << (8 * bytes - 1)) - 1, -(1 << (8 * bytes - 1))})
            samples.push_back(value * (1 << unused));
        file.write(samples);
        file.close();
        std::string expected;
        for (const std::int32_t sample : samples)
            for (int byte = 4 - bytes; byte < 4; ++byte)
                expected.push_back(static_cast<char>(static_cast<std::uint32_t>(sample) >> (8 * byte)));
        const std::string content = bytesOf(path);
        ASSERT_GT(content.size(), expected.size());
        EXPECT_EQ(content.substr(content.size() - expected.size()), expected);
    }
}

} // namespace
