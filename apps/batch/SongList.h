// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_BATCH_SONGLIST_H
#define TONWERK_APPS_BATCH_SONGLIST_H

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace tonwerk::app
{

/// A song to separate.
struct SongEntry
{
    std::filesystem::path path;
    /// The folder for its stems.
    std::filesystem::path folder;
    /// Whether it comes from standard input; there is no file then.
    bool isStandardInput = false;
};

/// An input that yields no song, and the sentence that tells why.
struct InputError
{
    std::string input;
    std::string message;
};

struct SongList
{
    std::vector<SongEntry> songs;
    std::vector<InputError> errors;
    /// How many files in folders were left out because their sound cannot be read, by extension.
    std::map<std::string, std::size_t> unreadable;
};

/// The name of standard input on the command line.
inline constexpr const char* standardInputName = "-";

/// The name that the song of standard input has.
inline constexpr const char* standardInputSong = "stdin";

/// The file beside finished stems. It marks a folder as one of stems.
inline constexpr const char* receiptName = "receipt.json";

/// The page that shows a song's stems.
inline constexpr const char* reportName = "report.html";

/// The sessions for recording programs.
inline constexpr const char* dawProjectName = "stems.dawproject";
inline constexpr const char* reaperProjectName = "stems.rpp";

/// The folder with the sound that the page plays.
inline constexpr const char* playerName = "player";

/// Finds the songs that the inputs name: files, folders with everything below them, standard input. Each song
/// appears once; the list is sorted by path, so that it is the same everywhere.
///
/// In folders, the extension decides whether a file is a song. Names that begin with a full stop, folders of
/// stems and the output folder are left out.
///
/// A song's folder has its name without extension; it lies in the output folder where the song lies in the
/// folder that was named. So it never depends on other songs. Of several songs that would have the same
/// folder only the first in the list is separated; case makes no difference.
SongList findSongs(const std::vector<std::string>& inputs, const std::filesystem::path& outputFolder);

/// A sentence on the files that were left out, empty if there are none.
std::string unreadableSentence(const SongList& list);

/// Every count-th song, beginning with the index-th.
/// \param index from 1 to count
std::vector<SongEntry> shardOf(const std::vector<SongEntry>& songs, std::size_t index, std::size_t count);

} // namespace tonwerk::app

#endif // TONWERK_APPS_BATCH_SONGLIST_H
