// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_RAWREADER_H
#define TONWERK_APPS_AUDIO_RAWREADER_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "audio/SongSource.h"
#include "system/Sha256.h"

namespace tonwerk::app
{

/// Reads a song from a stream without a header: interleaved stereo of 32-bit float samples, little-endian.
class RawReader : public SongSource
{
public:
    /// \param stream not owned; made binary
    /// \param sniffs whether to refuse a file with a header of its own, such as WAV or MP3
    RawReader(std::FILE* stream, unsigned sampleRate, bool sniffs);

    void read(std::size_t frames, std::vector<float>& stereo) override;
    double fractionRead() const override { return 0.0; }
    std::string sha256() override { return hash.hexadecimal(); }

private:
    void requireSamples(std::string_view bytes) const;

    std::FILE* input;
    bool sniffs;
    Sha256 hash;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_RAWREADER_H
