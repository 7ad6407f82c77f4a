// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_MP3DECODER_H
#define TONWERK_APPS_AUDIO_MP3DECODER_H

#include <memory>

#include "audio/Decoder.h"
#include "audio/FileSource.h"

struct mpg123_handle_struct;

namespace tonwerk::app
{

/// Decodes MP3. Where the encoder notes what it has put in front and behind (as LAME does), this is left out,
/// so that the samples are as many as, and in step with, those that were encoded.
class Mp3Decoder : public Decoder
{
public:
    /// \param source read from its start; must outlive the decoder
    /// \return null if it is no MP3
    static std::unique_ptr<Mp3Decoder> open(FileSource& source);

    std::size_t read(float* interleaved, std::size_t frames) override;
    unsigned channels() const override { return channelCount; }
    unsigned sampleRate() const override { return rate; }
    std::uint64_t statedFrames() const override { return 0; }
    std::uint64_t expectedFrames() const override;

private:
    struct Closer
    {
        void operator()(mpg123_handle_struct* open) const;
    };

    Mp3Decoder() = default;

    bool start(FileSource& source);

    std::unique_ptr<mpg123_handle_struct, Closer> handle;
    unsigned channelCount = 0;
    unsigned rate = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_MP3DECODER_H
