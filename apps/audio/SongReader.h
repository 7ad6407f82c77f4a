// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_SONGREADER_H
#define TONWERK_APPS_AUDIO_SONGREADER_H

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "audio/Decoder.h"
#include "audio/FileSource.h"
#include "audio/Mp3Structure.h"
#include "audio/SongSource.h"

namespace tonwerk::app
{

/// The sample rates of songs, in Hz.
inline constexpr unsigned lowestSampleRate = 8000;
inline constexpr unsigned highestSampleRate = 192000;

/// Reads a song from a WAV, FLAC, OGG or MP3 file.
class SongReader : public SongSource
{
public:
    /// \throws Failure if there is no such file, it cannot be decoded, or it has more than two channels or a
    ///         sample rate out of range
    explicit SongReader(const std::filesystem::path& path);

    void read(std::size_t frames, std::vector<float>& stereo) override;
    double fractionRead() const override;
    std::vector<std::string> warnings() const override { return faults; }
    std::string sha256() override;

private:
    std::unique_ptr<Decoder> openDecoder();
    void noteFaults(const Mp3Structure& structure);
    void checkFormat() const;
    void checkEnd() const;

    std::filesystem::path location;
    std::vector<std::string> faults;
    FileSource source;
    std::unique_ptr<Decoder> decoder;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_SONGREADER_H
