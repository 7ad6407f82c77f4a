// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_STEMFOLDER_H
#define TONWERK_APPS_AUDIO_STEMFOLDER_H

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "audio/PcmEncoder.h"
#include "audio/StemSink.h"
#include "audio/StemWriter.h"

namespace tonwerk::app
{

/// A song's tracks on disk: a folder with one WAV file per track. Without commit(), the destructor removes
/// the files and folders that this object made.
class StemFolder : public StemSink
{
public:
    /// Makes the folder, as far as it does not exist, and empty files of temporary names in it.
    /// \param names of the files, without extension
    /// \throws Failure if a folder or file cannot be made
    StemFolder(std::filesystem::path path, const std::vector<std::string>& names, unsigned channels,
               unsigned sampleRate, std::uint64_t expectedFrames);
    ~StemFolder() override;

    void write(const std::vector<std::vector<float>>& tracks) override;

    /// Completes all files in this format and then gives them their final names.
    /// \param gain factor for fixed-point samples
    /// \throws Failure if that is not possible
    void commit(SampleFormat format, double gain);

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
    std::vector<std::unique_ptr<StemWriter>> writers;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_STEMFOLDER_H
