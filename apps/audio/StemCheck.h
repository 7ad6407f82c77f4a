// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_STEMCHECK_H
#define TONWERK_APPS_AUDIO_STEMCHECK_H

#include <cstdint>
#include <filesystem>

#include "audio/PcmEncoder.h"

namespace tonwerk::app
{

/// How much sound there is.
struct SoundShape
{
    unsigned channels;
    /// In Hz.
    unsigned sampleRate;
    /// Samples per channel.
    std::uint64_t frames;
};

/// Whether a file is a stem with samples of this format, and as long as it should be by its header. Whether
/// its samples are all there, the file's size tells.
bool isStem(const std::filesystem::path& path, SampleFormat format, const SoundShape& shape);

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_STEMCHECK_H
