// SPDX-License-Identifier: MIT
#include "audio/SongReader.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <ogg/ogg.h>
#include <sndfile.h>

#include "audio/OggStructure.h"
#include "support/ScratchFolder.h"
#include "system/Failure.h"

namespace
{

using tonwerk::app::Failure;
using tonwerk::app::FileSource;
using tonwerk::app::OggStructure;
using tonwerk::app::oggStructure;
using tonwerk::app::SongReader;

constexpr std::size_t frames = 100000;

/// Noise as a file of libsndfile's format.
std::string encoded(int format, const std::filesystem::path& folder)
{
    std::vector<float> samples(2 * frames);
    std::minstd_rand random{7};
    for (float& sample : samples)
        sample = static_cast<float>(random()) / static_cast<float>(std::minstd_rand::max()) - 0.5F;
    const std::string path = (folder / "encoded").string();
    SF_INFO info{};
    info.samplerate = 44100;
    info.channels = 2;
    info.format = format;
    SNDFILE* const file = sf_open(path.c_str(), SFM_WRITE, &info);
    EXPECT_NE(file, nullptr) << sf_strerror(nullptr);
    EXPECT_EQ(sf_writef_float(file, samples.data(), frames), static_cast<sf_count_t>(frames));
    sf_close(file);
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::filesystem::path put(const ScratchFolder& folder, const std::string& content)
{
    const auto path = folder.path() / std::u8string(u8"song \u6b4c");
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

/// \return how many samples per channel there are, or what the user is told
std::string outcomeOf(const ScratchFolder& folder, const std::string& content)
{
    try
    {
        SongReader song(put(folder, content));
        std::vector<float> block;
        do
            song.read(4096, block);
        while (!block.empty());
        return std::to_string(song.framesRead());
    }
    catch (const Failure& failure)
    {
        return failure.what();
    }
}

std::vector<std::string> pagesOf(const std::string& ogg)
{
    std::vector<std::string> pages;
    for (std::size_t place = 0; place < ogg.size();)
    {
        const auto segments = static_cast<std::size_t>(static_cast<unsigned char>(ogg[place + 26]));
        std::size_t size = 27 + segments;
        for (std::size_t segment = 0; segment < segments; ++segment)
            size += static_cast<unsigned char>(ogg[place + 27 + segment]);
        pages.push_back(ogg.substr(place, size));
        place += size;
    }
    return pages;
}

std::string joined(const std::vector<std::string>& pages)
{
    return std::accumulate(pages.begin(), pages.end(), std::string());
}

/// Gives a changed page the checksum that it now should have.
void seal(std::string& page)
{
    auto* const bytes = reinterpret_cast<unsigned char*>(page.data());
    const long head = 27 + static_cast<long>(bytes[26]);
    ogg_page parts{bytes, head, bytes + head, static_cast<long>(page.size()) - head};
    ogg_page_checksum_set(&parts);
}

void putNumber(std::string& bytes, std::size_t place, std::uint64_t number, std::size_t count = 4)
{
    for (std::size_t byte = 0; byte < count; ++byte)
        bytes.at(place + byte) = static_cast<char>(number >> (8 * byte));
}

OggStructure structureOf(const ScratchFolder& folder, const std::vector<std::string>& pages)
{
    FileSource source(put(folder, joined(pages)));
    return oggStructure(source);
}

TEST(SongReader, ReadsEveryFormatToItsLastSample)
{
    const ScratchFolder folder;
    for (const int format : {SF_FORMAT_WAV | SF_FORMAT_PCM_16, SF_FORMAT_WAV | SF_FORMAT_MS_ADPCM,
                             SF_FORMAT_RF64 | SF_FORMAT_FLOAT, SF_FORMAT_W64 | SF_FORMAT_PCM_24,
                             SF_FORMAT_FLAC | SF_FORMAT_PCM_24, SF_FORMAT_OGG | SF_FORMAT_VORBIS})
    {
        const std::string content = encoded(format, folder.path());
        const std::string outcome = outcomeOf(folder, content);
        if ((format & SF_FORMAT_SUBMASK) == SF_FORMAT_MS_ADPCM) // whole blocks of 2036
            EXPECT_EQ(outcome, std::to_string((frames + 2035) / 2036 * 2036));
        else
            EXPECT_EQ(outcome, std::to_string(frames)) << std::hex << format;
    }
    std::string piped = encoded(SF_FORMAT_FLAC | SF_FORMAT_PCM_16, folder.path());
    piped[21] = static_cast<char>(piped[21] & 0xF0); // an encoder that cannot go back leaves the length open
    putNumber(piped, 22, 0);
    EXPECT_EQ(outcomeOf(folder, piped), std::to_string(frames));
}

TEST(SongReader, RefusesOggFilesThatLackPages)
{
    const ScratchFolder folder;
    const auto whole = pagesOf(encoded(SF_FORMAT_OGG | SF_FORMAT_VORBIS, folder.path()));
    ASSERT_GT(whole.size(), 6U);
    EXPECT_EQ(structureOf(folder, whole), OggStructure::Whole);
    EXPECT_EQ(structureOf(folder, {"RIFF", "...."}), OggStructure::None);

    std::vector<std::vector<std::string>> broken(5, whole);
    broken[0].pop_back();
    broken[1].erase(broken[1].begin() + 4);
    broken[2].erase(broken[2].begin());
    broken[3].back().pop_back();
    broken[4][3].back() = static_cast<char>(broken[4][3].back() ^ 1);
    for (const auto& pages : broken)
    {
        EXPECT_EQ(structureOf(folder, pages), OggStructure::Broken);
        EXPECT_NE(outcomeOf(folder, joined(pages)).find("damaged or cut off"), std::string::npos);
    }
    const std::string twice = joined(whole) + joined(whole);
    EXPECT_NE(outcomeOf(folder, twice).find("one after the other"), std::string::npos);
}

TEST(SongReader, EndsHostileVorbisCommentsWithRightChecksumsInASentence)
{
    const ScratchFolder folder;
    const auto whole = pagesOf(encoded(SF_FORMAT_OGG | SF_FORMAT_VORBIS, folder.path()));
    // The second packet begins with its type and "vorbis": then the vendor's length, its text, the comments'
    // count.
    const std::size_t packet = 27 + static_cast<unsigned char>(whole[1][26]);
    ASSERT_EQ(whole[1].substr(packet + 1, 6), "vorbis");
    const std::size_t vendor = packet + 7;
    const std::size_t comments = vendor + 4 + static_cast<unsigned char>(whole[1][vendor]);
    for (const auto& [place, number] : {std::pair{comments, 0x20000001U},
                                        {comments, 0xFFFFFFFFU},
                                        {vendor, 0x7ffffff0U},
                                        {vendor, 0xFFFFFFFFU}})
    {
        auto pages = whole;
        putNumber(pages[1], place, number);
        seal(pages[1]);
        EXPECT_EQ(structureOf(folder, pages), OggStructure::Whole) << "the checksums are right";
        EXPECT_NE(outcomeOf(folder, joined(pages)).find("damaged"), std::string::npos) << number;
    }
}

TEST(SongReader, EndsAbsurdSizesInWaveHeaders)
{
    constexpr std::array<std::uint64_t, 5> sizes{0x8000000000000000U, 0xFFFFFFFFFFFFFFF0U,
                                                 0x7FFFFFFFFFFFFFFFU, 0, 24};
    constexpr std::array<std::size_t, 2> widths{4, 8};
    const ScratchFolder folder;
    for (const int container : {SF_FORMAT_WAV, SF_FORMAT_RF64, SF_FORMAT_W64})
    {
        const std::string whole = encoded(container | SF_FORMAT_PCM_16, folder.path()).substr(0, 8000);
        for (std::size_t place = 4; place < 120; place += 4)
            for (const std::uint64_t size : sizes)
                for (const std::size_t width : widths)
                {
                    std::string content = whole;
                    putNumber(content, place, size, width);
                    EXPECT_FALSE(outcomeOf(folder, content).empty());
                }
    }
}

TEST(SongReader, EndsHostileAdpcm)
{
    const ScratchFolder folder;
    const std::string whole = encoded(SF_FORMAT_WAV | SF_FORMAT_MS_ADPCM, folder.path());
    std::minstd_rand random{3};
    for (int round = 0; round < 200; ++round)
    {
        std::string content = whole.substr(0, 6000);
        for (int change = 0; change < 8; ++change)
            content[20 + random() % (round % 2 == 0 ? 80U : 5900U)] = static_cast<char>(random());
        EXPECT_FALSE(outcomeOf(folder, content).empty());
    }
}

} // namespace
