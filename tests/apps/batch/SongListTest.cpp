// SPDX-License-Identifier: MIT
#include "batch/SongList.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/ScratchFolder.h"
#include "system/Text.h"

namespace
{

using namespace tonwerk::app;
using testing::ElementsAre;

class SongListTest : public testing::Test
{
protected:
    void put(const std::string& name)
    {
        const auto path = scratch.path() / toPath(name);
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << "x";
    }

    std::string at(const std::string& name) const { return toText(scratch.path() / toPath(name)); }

    SongList find(const std::vector<std::string>& names) const
    {
        std::vector<std::string> inputs;
        for (const std::string& name : names)
            inputs.push_back(at(name));
        return findSongs(inputs, "out");
    }

    /// Paths below the scratch folder, and the names of the songs' folders.
    std::vector<std::string> found(const std::vector<std::string>& names) const
    {
        std::vector<std::string> texts;
        for (const SongEntry& song : find(names).songs)
            texts.push_back(toText(std::filesystem::relative(song.path, scratch.path()).generic_u8string()) +
                            " > " + toText(song.folder.filename()));
        return texts;
    }

    ScratchFolder scratch;
};

TEST_F(SongListTest, FoldersAreSearchedForSongsButNotForStems)
{
    for (const char* name : {"b.MP3", "a.flac", "deep/er/c.ogg", "notes.txt", ".hidden.wav", ".trash/d.wav",
                             "b/vocals.wav", "b/receipt.json", "half.wav.part"})
        put(name);
    EXPECT_THAT(found({""}), ElementsAre("a.flac > a", "b.MP3 > b", "deep/er/c.ogg > c"));
    EXPECT_THAT(found({"b/vocals.wav", "notes.txt"}),
                ElementsAre("b/vocals.wav > vocals", "notes.txt > notes"))
        << "what is named is taken";
    EXPECT_THAT(find({"b"}).errors, testing::SizeIs(1)) << "an empty folder";
}

TEST_F(SongListTest, SongsOfOneNameGetFoldersOfTheirOwn)
{
    for (const char* name : {"1/Song.wav", "2/song.mp3", "3/song.flac", "3/song (2).wav", "4/Песня.wav",
                             "5/песня.wav", "6/dots....wav", "6/....wav"})
        put(name);
    EXPECT_THAT(found({"3", "1", "2"}),
                ElementsAre("1/Song.wav > Song", "2/song.mp3 > song (2)", "3/song (2).wav > song (2) (2)",
                            "3/song.flac > song (3)"));
    EXPECT_THAT(found({"4", "5"}), ElementsAre("4/Песня.wav > Песня", "5/песня.wav > песня (2)"));
    EXPECT_THAT(found({"6/dots....wav", "6/....wav"}),
                ElementsAre("6/....wav > song", "6/dots....wav > dots"));
}

TEST_F(SongListTest, EachSongComesOnceUnderTheNameThatTheFileHas)
{
    for (const char* name : {"x1/two.wav", "one[1].wav", "x2/über 歌.mp3"})
        put(name);
    EXPECT_THAT(found({"x1/two.wav", "x1", "x1/../x1/two.wav"}), testing::SizeIs(1));
    EXPECT_THAT(found({"one[1].wav", "x2/über 歌.mp3"}),
                ElementsAre("one[1].wav > one[1]", "x2/über 歌.mp3 > über 歌"));
}

TEST_F(SongListTest, ShardsShareTheSongsAmongThem)
{
    for (int song = 0; song < 7; ++song)
        put(std::to_string(song) + ".wav");
    const auto songs = find({""}).songs;
    std::vector<int> seen(songs.size(), 0);
    for (std::size_t shard = 1; shard <= 3; ++shard)
        for (const SongEntry& song : shardOf(songs, shard, 3))
            ++seen.at(static_cast<std::size_t>(std::stoi(toText(song.folder.filename()))));
    EXPECT_THAT(seen, testing::Each(1));
    EXPECT_THAT(shardOf(songs, 8, 8), testing::IsEmpty());
}

} // namespace
