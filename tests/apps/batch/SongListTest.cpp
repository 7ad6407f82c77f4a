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
                            " > " + toText(std::filesystem::relative(song.folder, "out").generic_u8string()));
        return texts;
    }

    ScratchFolder scratch;
};

TEST_F(SongListTest, FoldersAreSearchedForSongsButNotForStems)
{
    for (const char* name : {"b.MP3", "a.flac", "deep/er/c.ogg", "notes.txt", ".hidden.wav", ".trash/d.wav",
                             "b/vocals.wav", "b/receipt.json", "half.wav.part"})
        put(name);
    EXPECT_THAT(found({""}), ElementsAre("a.flac > a", "b.MP3 > b", "deep/er/c.ogg > deep/er/c"));
    EXPECT_THAT(found({"b/vocals.wav", "notes.txt"}),
                ElementsAre("b/vocals.wav > vocals", "notes.txt > notes"))
        << "what is named is taken";
    EXPECT_THAT(find({"b"}).errors, testing::SizeIs(1)) << "an empty folder";
}

TEST_F(SongListTest, FoldersMirrorTheInput)
{
    for (const char* name : {"1/Song.wav", "1/disc 1/song.mp3", "1/disc 2/Song.flac", "1/Песня.wav",
                             "1/disc 2/dots....wav", "2/....wav", "2/song.aiff"})
        put(name);
    const std::vector<std::string> before = found({"1"});
    EXPECT_THAT(before, ElementsAre("1/Song.wav > Song", "1/disc 1/song.mp3 > disc 1/song",
                                    "1/disc 2/Song.flac > disc 2/Song", "1/disc 2/dots....wav > disc 2/dots",
                                    "1/Песня.wav > Песня"));
    put("1/A new song.wav");
    EXPECT_THAT(found({"1"}), testing::IsSupersetOf(before)) << "a name never depends on other songs";
    EXPECT_THAT(found({"2/song.aiff"}), ElementsAre("2/song.aiff > song"));
    EXPECT_THAT(found({"2/....wav"}), ElementsAre("2/....wav > song"));
}

TEST_F(SongListTest, SongsWithOneFolderAreNotMixed)
{
    for (const char* name : {"1/Song.wav", "2/song.mp3", "3/песня.wav", "3/ПЕСНЯ.flac"})
        put(name);
    EXPECT_THAT(found({"2", "1"}), ElementsAre("1/Song.wav > Song"));
    const SongList list = find({"1", "2"});
    ASSERT_THAT(list.errors, testing::SizeIs(1));
    EXPECT_THAT(list.errors[0].message,
                testing::AllOf(testing::HasSubstr("song.mp3"), testing::HasSubstr("same folder"),
                               testing::HasSubstr("Song.wav")));
    EXPECT_THAT(find({"3"}).errors, testing::SizeIs(1));
}

TEST_F(SongListTest, FilesThatNothingReadsAreCounted)
{
    for (const char* name : {"a.wav", "b.M4A", "deep/c.m4a", "deep/d.wma", "cover.jpg", "notes.txt"})
        put(name);
    const SongList list = find({""});
    EXPECT_THAT(list.songs, testing::SizeIs(1));
    EXPECT_THAT(list.unreadable, ElementsAre(testing::Pair(".m4a", 2), testing::Pair(".wma", 1)));
    EXPECT_THAT(unreadableSentence(list), testing::StartsWith("3 files are left out"));
    EXPECT_EQ(unreadableSentence(find({"a.wav"})), "");
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
