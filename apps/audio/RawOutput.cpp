// SPDX-License-Identifier: MIT
#include "audio/RawOutput.h"

#include <cstddef>

#include "system/Failure.h"
#include "system/Files.h"

namespace tonwerk::app
{

RawOutput::RawOutput(std::FILE* stream, unsigned channels) : output(stream), channelCount(channels)
{
    makeBinary(stream);
}

void RawOutput::write(const std::vector<std::vector<float>>& tracks)
{
    frames.clear();
    for (std::size_t place = 0; place < tracks.front().size(); place += channelCount)
        for (const auto& track : tracks)
            for (unsigned channel = 0; channel < channelCount; ++channel)
                frames.push_back(track[place + channel]);
    if (std::fwrite(frames.data(), sizeof(float), frames.size(), output) != frames.size() ||
        std::fflush(output) != 0)
        throw Failure("The stems cannot be written to standard output.");
}

} // namespace tonwerk::app
