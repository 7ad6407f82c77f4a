// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_BATCH_SONGLIST_H
#define TONWERK_APPS_BATCH_SONGLIST_H

#include <cstddef>
#include <filesystem>
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
};

/// The name of standard input on the command line.
inline constexpr const char* standardInputName = "-";

/// The name that the song of standard input has.
inline constexpr const char* standardInputSong = "stdin";

/// The file beside finished stems. It marks a folder as one of stems.
inline constexpr const char* receiptName = "receipt.json";

/// The page that shows a song's stems.
inline constexpr const char* reportName = "report.html";

/// Finds the songs that the inputs name: files, folders with everything below them, standard input. Each song
/// appears once; the list is sorted by path, so that it is the same everywhere.
///
/// In folders, the extension decides whether a file is a song. Names that begin with a full stop, folders of
/// stems and the output folder are left out.
///
/// A song's folder has its name without extension. If several songs would have the same folder, the first in
/// the list has it, and the others get " (2)", " (3)" and so on; case makes no difference.
SongList findSongs(const std::vector<std::string>& inputs, const std::filesystem::path& outputFolder);

/// Every count-th song, beginning with the index-th.
/// \param index from 1 to count
std::vector<SongEntry> shardOf(const std::vector<SongEntry>& songs, std::size_t index, std::size_t count);

} // namespace tonwerk::app

#endif // TONWERK_APPS_BATCH_SONGLIST_H
