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

constexpr std::array<std::string_view, 16> songExtensions{".wav",  ".wave", ".flac", ".mp3",  ".ogg", ".oga",
                                                          ".opus", ".aif",  ".aiff", ".aifc", ".w64", ".rf64",
                                                          ".caf",  ".au",   ".snd",  ".mp2"};

/// Sound that nothing here reads.
constexpr std::array<std::string_view, 18> unreadableExtensions{
    ".m4a", ".aac",  ".alac", ".wma", ".mp4", ".m4b", ".m4v", ".mov", ".mkv",
    ".mka", ".webm", ".avi",  ".ape", ".wv",  ".tta", ".dsf", ".dff", ".ac3"};

template <std::size_t count>
bool isOneOf(const std::array<std::string_view, count>& extensions, const std::string& extension)
{
    return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
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
        takeFolder(path, {});
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

    /// \param place the folder's path below the one that was named
    void takeFolder(const std::filesystem::path& folder, const std::filesystem::path& place)
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
                    takeFolder(entry->path(), place / entry->path().filename());
            }
            else if (entry->is_regular_file(unknown))
                takeFile(entry->path(), place);
        }
        if (failure)
            found.errors.push_back({toText(folder), "The folder " + quoted(folder) + " cannot be read: " +
                                                        asReason(failure.message()) + "."});
    }

    void takeFile(const std::filesystem::path& file, const std::filesystem::path& place)
    {
        const std::string extension = inLowerCase(toText(file.extension()));
        if (isOneOf(songExtensions, extension))
            found.songs.push_back({file, place, false});
        else if (isOneOf(unreadableExtensions, extension))
            ++found.unreadable[extension];
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
std::string folderName(std::string name)
{
    name.erase(name.find_last_not_of(". ") + 1);
    return name.empty() ? "song" : name;
}

/// Where the song's folder lies below the output folder. Its place is in entry.folder so far.
std::filesystem::path placeOf(const SongEntry& entry)
{
    std::filesystem::path place;
    for (const auto& part : entry.folder)
        place /= toPath(folderName(toText(part)));
    return place / toPath(folderName(toText(entry.path.stem())));
}

void chooseFolders(SongList& list, const std::filesystem::path& outputFolder)
{
    std::map<std::string, std::filesystem::path> taken;
    std::vector<SongEntry> alone;
    for (SongEntry& song : list.songs)
    {
        const std::filesystem::path place = placeOf(song);
        const auto [other, isFirst] = taken.emplace(inLowerCase(toText(place)), song.path);
        song.folder = outputFolder / place;
        if (isFirst)
            alone.push_back(song);
        else
            list.errors.push_back({toText(song.path), "The song " + quoted(song.path) +
                                                          " would have the same folder as " +
                                                          quoted(other->second) + ": " + quoted(song.folder) +
                                                          ". Separate it into another output folder."});
    }
    list.songs = std::move(alone);
}

} // namespace

SongList findSongs(const std::vector<std::string>& inputs, const std::filesystem::path& outputFolder)
{
    SongList list;
    Finder finder(list, outputFolder);
    for (const std::string& input : inputs)
        finder.take(input);
    sortOnce(list.songs);
    chooseFolders(list, outputFolder);
    return list;
}

std::string unreadableSentence(const SongList& list)
{
    std::size_t count = 0;
    std::string extensions;
    for (const auto& [extension, files] : list.unreadable)
    {
        count += files;
        extensions.append(extensions.empty() ? "" : ", ").append(extension);
    }
    if (count == 0)
        return "";
    return std::to_string(count) + (count == 1 ? " file is" : " files are") +
           " left out, because this program does not read " + extensions +
           ". Converted to FLAC or WAV it does.";
}

std::vector<SongEntry> shardOf(const std::vector<SongEntry>& songs, std::size_t index, std::size_t count)
{
    std::vector<SongEntry> shard;
    for (std::size_t song = index - 1; song < songs.size(); song += count)
        shard.push_back(songs[song]);
    return shard;
}

} // namespace tonwerk::app
