// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_DECODER_H
#define TONWERK_APPS_AUDIO_DECODER_H

#include <cstddef>
#include <cstdint>

namespace tonwerk::app
{

/// Makes samples of an audio file, from its start to its end.
class Decoder
{
public:
    Decoder() = default;
    virtual ~Decoder() = default;

    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    /// \param interleaved place for `frames` samples of each channel; full scale is 1
    /// \return samples per channel; fewer than wanted at the end and where decoding cannot go on
    virtual std::size_t read(float* interleaved, std::size_t frames) = 0;

    virtual unsigned channels() const = 0;

    /// In Hz.
    virtual unsigned sampleRate() const = 0;

    /// Samples per channel that the file says it has; 0 if it does not say.
    virtual std::uint64_t statedFrames() const = 0;

    /// The same, or else an estimate; 0 if there is none.
    virtual std::uint64_t expectedFrames() const { return statedFrames(); }
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_DECODER_H
