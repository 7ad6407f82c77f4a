// SPDX-License-Identifier: MIT
#include "batch/SongList.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "system/LowerCase.h"
#include "system/OutputFolder.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

constexpr std::array<std::string_view, 6> songExtensions{".wav", ".wave", ".flac", ".mp3", ".ogg", ".oga"};

bool isSongName(const std::filesystem::path& path)
{
    const std::string extension = inLowerCase(toText(path.extension()));
    return std::find(songExtensions.begin(), songExtensions.end(), extension) != songExtensions.end();
}

/// Finds the songs that the inputs name, in any order.
class Finder
{
public:
    Finder(SongList& list, const std::filesystem::path& outputFolder) : found(list), output(outputFolder) {}

    void take(const std::string& input)
    {
        if (input == standardInputName)
            found.songs.push_back({toPath(standardInputSong), {}, true});
        else
            takePath(toPath(input));
    }

private:
    void takePath(const std::filesystem::path& path)
    {
        std::error_code failure;
        if (!std::filesystem::is_directory(path, failure))
        {
            found.songs.push_back({path, {}, false});
            return;
        }
        const std::size_t before = found.songs.size() + found.errors.size();
        takeFolder(path);
        if (found.songs.size() + found.errors.size() == before)
            found.errors.push_back(
                {toText(path), "The folder " + quoted(path) + " holds no WAV, FLAC, MP3 or OGG files."});
    }

    /// Whether it is a folder of stems, be they finished or not.
    static bool holdsStems(const std::filesystem::path& folder)
    {
        std::error_code failure;
        return std::filesystem::exists(folder / receiptName, failure) ||
               std::filesystem::exists(folder / unfinishedName, failure);
    }

    bool isOutput(const std::filesystem::path& folder) const
    {
        std::error_code absent;
        return std::filesystem::equivalent(folder, output, absent);
    }

    void takeFolder(const std::filesystem::path& folder)
    {
        if (holdsStems(folder))
            return;
        std::error_code failure;
        std::filesystem::directory_iterator entry(folder, failure);
        for (; !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure))
        {
            std::error_code unknown;
            if (toText(entry->path().filename()).front() == '.')
                continue;
            if (entry->is_directory(unknown) && !entry->is_symlink(unknown)) // links may lead back here
            {
                if (!isOutput(entry->path()))
                    takeFolder(entry->path());
            }
            else if (isSongName(entry->path()) && entry->is_regular_file(unknown))
                found.songs.push_back({entry->path(), {}, false});
        }
        if (failure)
            found.errors.push_back({toText(folder), "The folder " + quoted(folder) + " cannot be read: " +
                                                        asReason(failure.message()) + "."});
    }

    SongList& found;
    const std::filesystem::path& output;
};

std::string sortingKey(const SongEntry& song)
{
    const std::u8string key = song.path.generic_u8string();
    return {key.begin(), key.end()};
}

void sortOnce(std::vector<SongEntry>& songs)
{
    std::stable_sort(songs.begin(), songs.end(),
                     [](const auto& one, const auto& other) { return sortingKey(one) < sortingKey(other); });
    std::set<std::filesystem::path> seen;
    std::erase_if(songs,
                  [&seen](const SongEntry& song)
                  {
                      std::error_code failure;
                      const auto place = std::filesystem::absolute(song.path, failure).lexically_normal();
                      return !seen.insert(song.isStandardInput ? toPath(standardInputName) : place).second;
                  });
}

/// Windows drops full stops and blanks at the end of a folder's name, so we do so everywhere.
std::string folderName(const SongEntry& song)
{
    std::string name = toText(song.path.stem());
    name.erase(name.find_last_not_of(". ") + 1);
    return name.empty() ? "song" : name;
}

void chooseFolders(std::vector<SongEntry>& songs, const std::filesystem::path& outputFolder)
{
    std::set<std::string> taken;
    for (SongEntry& song : songs)
    {
        const std::string plain = folderName(song);
        std::string name = plain;
        for (int number = 2; !taken.insert(inLowerCase(name)).second; ++number)
            name = plain + " (" + std::to_string(number) + ")";
        song.folder = outputFolder / toPath(name);
    }
}

} // namespace

SongList findSongs(const std::vector<std::string>& inputs, const std::filesystem::path& outputFolder)
{
    SongList list;
    Finder finder(list, outputFolder);
    for (const std::string& input : inputs)
        finder.take(input);
    sortOnce(list.songs);
    chooseFolders(list.songs, outputFolder);
    return list;
}

std::vector<SongEntry> shardOf(const std::vector<SongEntry>& songs, std::size_t index, std::size_t count)
{
    std::vector<SongEntry> shard;
    for (std::size_t song = index - 1; song < songs.size(); song += count)
        shard.push_back(songs[song]);
    return shard;
}

} // namespace tonwerk::app
