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

/// Writes one track to a WAV file. Until it is committed, the file bears a temporary name (its final name and
/// ".part") and holds 32-bit float samples; it goes with the object if it never is.
class StemWriter
{
public:
    /// \param finalPath the file's name once it is committed; its folder must exist
    /// \param expectedFrames length of the track, roughly; 0 if it is not known
    /// \throws Failure if the file cannot be made
    StemWriter(std::filesystem::path finalPath, unsigned channels, unsigned sampleRate,
               std::uint64_t expectedFrames);
    ~StemWriter();

    StemWriter(const StemWriter&) = delete;
    StemWriter& operator=(const StemWriter&) = delete;

    /// Appends samples, interleaved.
    /// \throws Failure if the file cannot be written or would grow too long
    void write(std::span<const float> samples);

    /// Completes the file in its final format, still under a temporary name. Fixed-point samples can only be
    /// made now, because the gain that keeps all tracks of the song from clipping is known last.
    /// \param gain factor for fixed-point samples
    /// \throws Failure if it cannot be written
    void finish(SampleFormat format, double gain);

    /// Gives the finished file its final name; an older file of that name is replaced.
    /// \throws Failure if it cannot be renamed
    void commit();

private:
    void convert(SampleFormat format, double gain);

    std::filesystem::path finalLocation;
    std::filesystem::path location;  ///< of the float samples
    std::filesystem::path converted; ///< of the fixed-point samples, if any
    unsigned channelCount;
    unsigned rate;
    std::unique_ptr<WavFile> file;
    bool committed = false;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_STEMWRITER_H
