// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_WAVFILE_H
#define TONWERK_APPS_AUDIO_WAVFILE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>

#include "audio/PcmEncoder.h"
#include "system/BinaryFile.h"

struct ma_encoder;

namespace tonwerk::app
{

/// A WAV file in the making, which other programs can play as far as it has been written.
class WavFile
{
public:
    /// \throws Failure if the file cannot be made
    WavFile(std::filesystem::path path, SampleFormat format, unsigned channels, unsigned sampleRate);

    /// Bytes before the first sample.
    static constexpr std::uint64_t headerBytes = 44;

    /// Samples per channel that a WAV file can hold: its sizes are 32-bit numbers.
    static std::uint64_t maxFrames(SampleFormat format, unsigned channels);

    /// Appends frames, interleaved and in the file's format, and notes the new length in the header.
    /// \throws Failure if the file cannot be written or would grow too long
    void write(const void* samples, std::uint64_t frames);

    /// Completes the file.
    /// \throws Failure if it cannot be written
    void close();

    /// Closes the file without asking how it went.
    void discard();

private:
    struct EncoderCloser
    {
        void operator()(ma_encoder* open) const;
    };

    void noteLength();
    void writeNumber(std::int64_t offset, std::uint64_t number);

    std::filesystem::path location;
    SampleFormat sampleFormat;
    unsigned channelCount;
    BinaryFile file;
    std::unique_ptr<ma_encoder, EncoderCloser> encoder;
    std::uint64_t framesWritten = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_WAVFILE_H
