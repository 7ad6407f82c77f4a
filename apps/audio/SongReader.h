// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_SONGREADER_H
#define TONWERK_APPS_AUDIO_SONGREADER_H

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "audio/SongSource.h"

struct ma_decoder;

namespace tonwerk::app
{

/// The sample rates of songs, in Hz.
inline constexpr unsigned lowestSampleRate = 8000;
inline constexpr unsigned highestSampleRate = 192000;

/// Decodes a WAV, FLAC, OGG or MP3 file.
class SongReader : public SongSource
{
public:
    /// \throws Failure if there is no such file, it cannot be decoded, or it has more than two channels or a
    ///         sample rate out of range
    explicit SongReader(const std::filesystem::path& path);
    ~SongReader() override;

    void read(std::size_t frames, std::vector<float>& stereo) override;
    double fractionRead() const override;
    std::string sha256() override;

private:
    struct Source;
    struct DecoderCloser
    {
        void operator()(ma_decoder* open) const;
    };

    void openDecoder();
    void checkFormat();
    std::size_t decode(float* interleaved, std::size_t frames);
    void checkEnd() const;

    std::filesystem::path location;
    std::unique_ptr<Source> source;
    std::unique_ptr<ma_decoder, DecoderCloser> decoder;
    bool eightBits = false;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_SONGREADER_H
