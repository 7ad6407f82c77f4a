// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_SNDFILEDECODER_H
#define TONWERK_APPS_AUDIO_SNDFILEDECODER_H

#include <memory>
#include <optional>

#include <sndfile.h>

#include "audio/Decoder.h"
#include "audio/FileSource.h"
#include "audio/PcmEncoder.h"

namespace tonwerk::app
{

/// Decodes what libsndfile does: WAV and its large variants, FLAC, Ogg Vorbis, Opus, AIFF and others.
class SndfileDecoder : public Decoder
{
public:
    /// \param source read from its start; must outlive the decoder
    /// \return null if libsndfile cannot decode it
    static std::unique_ptr<SndfileDecoder> open(FileSource& source);

    std::size_t read(float* interleaved, std::size_t frames) override;
    unsigned channels() const override { return static_cast<unsigned>(info.channels); }
    unsigned sampleRate() const override { return static_cast<unsigned>(info.samplerate); }
    std::uint64_t statedFrames() const override { return stated; }

    /// How the samples of a WAV file are stored; nothing if it is no WAV file or of no format of ours.
    std::optional<SampleFormat> wavFormat() const;

private:
    struct Closer
    {
        void operator()(SNDFILE* open) const { sf_close(open); }
    };

    explicit SndfileDecoder(FileSource& source);

    bool isWav() const;
    bool hasPossibleFloats() const;
    std::uint64_t framesInHeader() const;
    std::uint64_t dataBytesInHeader() const;

    SF_INFO info{};
    std::unique_ptr<SNDFILE, Closer> file;
    std::uint64_t stated = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_SNDFILEDECODER_H
