// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_WAVFILE_H
#define TONWERK_APPS_AUDIO_WAVFILE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>

#include <sndfile.h>

#include "audio/PcmEncoder.h"
#include "system/BinaryFile.h"

namespace tonwerk::app
{

/// A WAV file in the making, which other programs can play as far as it has been written. WAV files hold 4
/// GB; one that may grow longer has room for the larger sizes of RF64 (EBU Tech 3306) in its header, and
/// becomes such a file only if it does. Not all programs read such a header.
class WavFile
{
public:
    /// \param expectedFrames samples per channel that there will be, roughly; 0 if that is not known
    /// \throws Failure if the file cannot be made
    WavFile(std::filesystem::path path, SampleFormat format, unsigned channels, unsigned sampleRate,
            std::uint64_t expectedFrames);

    WavFile(const WavFile&) = delete;
    WavFile& operator=(const WavFile&) = delete;

    /// Appends samples, interleaved, to a file of float samples and notes the new length in the header.
    /// \throws Failure if the file cannot be written or grows beyond 4 GB unexpectedly
    void write(std::span<const float> samples);

    /// The same for a file of fixed-point samples, which PcmEncoder makes.
    void write(std::span<const std::int32_t> samples);

    /// Completes the file.
    /// \throws Failure if it cannot be written
    void close();

private:
    struct Closer
    {
        void operator()(SNDFILE* open) const { sf_close(open); }
    };

    static SF_VIRTUAL_IO callbacks();
    void finishBlock(sf_count_t written, std::size_t wanted);

    std::filesystem::path location;
    BinaryFile file;
    std::int64_t position = 0; ///< in the file
    std::int64_t length = 0;   ///< of the file
    bool mayBeLarge;
    std::unique_ptr<SNDFILE, Closer> encoder;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_WAVFILE_H
