// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_OGGSTRUCTURE_H
#define TONWERK_APPS_AUDIO_OGGSTRUCTURE_H

#include "audio/FileSource.h"

namespace tonwerk::app
{

enum class OggStructure
{
    None,    ///< not an Ogg file
    Whole,   ///< whole pages with right checksums, none missing, of streams that all begin and end
    Broken,  ///< a page is damaged, cut off or missing, or a stream does not end
    Chained, ///< streams one after the other, as radio programmes have them
};

/// What an Ogg file (RFC 3533) is made of. Decoders leave out what is missing without a word.
/// \param source read from its start; where it stands afterwards is open
OggStructure oggStructure(FileSource& source);

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_OGGSTRUCTURE_H
