// SPDX-License-Identifier: MIT
#include "audio/RawReader.h"

#include "system/Failure.h"
#include "system/Files.h"
#include "system/Interrupts.h"

namespace tonwerk::app
{

RawReader::RawReader(std::FILE* stream, unsigned sampleRate) : input(stream)
{
    makeBinary(stream);
    channelCount = 2;
    rate = sampleRate;
}

void RawReader::read(std::size_t frames, std::vector<float>& stereo)
{
    constexpr std::size_t frameSize = 2 * sizeof(float);
    stereo.resize(2 * frames);
    const std::size_t bytes = std::fread(stereo.data(), 1, frames * frameSize, input);
    if (interruptRequested())
        throw Interrupted();
    if (std::ferror(input) != 0)
        throw Failure("Standard input cannot be read.");
    if (bytes % frameSize != 0)
        throw Failure("Standard input is cut off: it ends within a frame of two 32-bit samples.");
    hash.feed(stereo.data(), bytes);
    stereo.resize(2 * (bytes / frameSize));
    framesSoFar += bytes / frameSize;
    if (framesSoFar == 0)
        throw Failure("Standard input holds no sound.");
}

} // namespace tonwerk::app
