// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_STEMWRITER_H
#define TONWERK_APPS_AUDIO_STEMWRITER_H

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>

#include "audio/PcmEncoder.h"
#include "audio/WavFile.h"

namespace tonwerk::app
{

/// Writes one track to a WAV file, which holds 32-bit float samples until it is finished.
class StemWriter
{
public:
    /// \param path of the file, which must not exist; its folder must
    /// \param expectedFrames length of the track, roughly; 0 if it is not known
    /// \throws Failure if the file cannot be made
    StemWriter(std::filesystem::path path, unsigned channels, unsigned sampleRate,
               std::uint64_t expectedFrames);

    /// Appends samples, interleaved.
    /// \throws Failure if the file cannot be written or would grow too long
    void write(std::span<const float> samples);

    /// Completes the file in its final format. Fixed-point samples can only be made now, because the gain
    /// that keeps all tracks of the song from clipping is known last.
    /// \param gain factor for fixed-point samples
    /// \throws Failure if it cannot be written
    void finish(SampleFormat format, double gain);

private:
    void convert(SampleFormat format, double gain);

    std::filesystem::path location;
    unsigned channelCount;
    unsigned rate;
    std::unique_ptr<WavFile> file;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_STEMWRITER_H
