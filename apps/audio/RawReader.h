// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_RAWREADER_H
#define TONWERK_APPS_AUDIO_RAWREADER_H

#include <cstddef>
#include <cstdio>
#include <string>
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
    RawReader(std::FILE* stream, unsigned sampleRate);

    void read(std::size_t frames, std::vector<float>& stereo) override;
    double fractionRead() const override { return 0.0; }
    std::string sha256() override { return hash.hexadecimal(); }

private:
    std::FILE* input;
    Sha256 hash;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_RAWREADER_H
