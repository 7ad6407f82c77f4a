// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_RAWOUTPUT_H
#define TONWERK_APPS_AUDIO_RAWOUTPUT_H

#include <cstdio>
#include <vector>

#include "audio/StemSink.h"

namespace tonwerk::app
{

/// Writes all tracks into one stream of 32-bit float samples without a header. Each frame has the samples of
/// the first track's channels, then those of the second, and so on.
class RawOutput : public StemSink
{
public:
    /// \param stream not owned; made binary
    RawOutput(std::FILE* stream, unsigned channels);

    void write(const std::vector<std::vector<float>>& tracks) override;

private:
    std::FILE* output;
    unsigned channelCount;
    std::vector<float> frames;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_RAWOUTPUT_H
