// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_FLACFILE_H
#define TONWERK_APPS_AUDIO_FLACFILE_H

#include <cstdint>
#include <span>
#include <string>

namespace tonwerk::app
{

/// A FLAC file in memory.
/// \param samples interleaved, of 16 bits
/// \throws Failure if they cannot be encoded
std::string flacFile(std::span<const std::int16_t> samples, unsigned channels, unsigned sampleRate);

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_FLACFILE_H
