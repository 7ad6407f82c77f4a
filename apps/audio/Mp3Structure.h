// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_MP3STRUCTURE_H
#define TONWERK_APPS_AUDIO_MP3STRUCTURE_H

#include <cstdint>

#include "audio/FileSource.h"

namespace tonwerk::app
{

/// What an MPEG audio file (ISO 11172-3 and 13818-3) is made of. Decoders look for the next frame behind what
/// is none, and end where there is no more, without a word.
struct Mp3Structure
{
    std::uint64_t frames = 0;       ///< whole ones, without the one that holds the encoder's notes
    std::uint64_t statedFrames = 0; ///< in the encoder's notes; 0 if it has left none
    std::uint64_t holes = 0;        ///< places where a frame is not followed by another one
    bool isCutOff = false;          ///< within its last frame

    /// Whether all is there, as far as one can tell. Some encoders count the frame of their notes too.
    bool isWhole() const { return statedFrames <= frames + 1 && holes == 0 && !isCutOff; }
};

/// Follows the frames of a file. What has no frames of a known length is taken for whole.
/// \param source read from its start; where it stands afterwards is open
Mp3Structure mp3Structure(FileSource& source);

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_MP3STRUCTURE_H
