#ifndef TONWERK_APPS_STEMFOLDER_H
#define TONWERK_APPS_STEMFOLDER_H

#include <cstddef>
#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include "StemWriter.h"
#include "Stems.h"

namespace tonwerk::app
{

/// The stems of one song on disk: a folder named after the song with one WAV file per wanted stem. Nothing is
/// left of files and folders that were made here, unless they are kept.
class StemFolder
{
public:
    /// Makes DIR/SONG, as far as it does not exist, and empty files of temporary names in it.
    /// \param outputFolder DIR
    /// \param song path of the song; its name without extension becomes SONG
    /// \throws Failure if a folder or file cannot be made
    StemFolder(const std::filesystem::path& outputFolder, const std::filesystem::path& song,
               const StemSet& wanted, unsigned channels, unsigned sampleRate);
    ~StemFolder();

    StemFolder(const StemFolder&) = delete;
    StemFolder& operator=(const StemFolder&) = delete;

    /// Appends a result of TonwerkProc::process to the files.
    /// \throws Failure if that is not possible
    void write(const std::vector<std::vector<float>>& stems);

    /// Completes all files and then gives them their final names.
    /// \throws Failure if that is not possible
    void keep();

    const std::filesystem::path& path() const { return folder; }

private:
    /// Folders that did not exist before, removed again while they are empty.
    class MadeFolders
    {
    public:
        explicit MadeFolders(const std::filesystem::path& wanted);
        ~MadeFolders();

        MadeFolders(const MadeFolders&) = delete;
        MadeFolders& operator=(const MadeFolders&) = delete;

    private:
        MadeFolders() = default;

        std::vector<std::filesystem::path> innermostFirst;
    };

    std::filesystem::path folder;
    MadeFolders madeFolders; // before the files: it goes after them
    std::vector<std::pair<std::size_t, std::unique_ptr<StemWriter>>> writers;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_STEMFOLDER_H
