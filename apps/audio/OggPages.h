// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_OGGPAGES_H
#define TONWERK_APPS_AUDIO_OGGPAGES_H

#include "system/BinaryFile.h"

namespace tonwerk::app
{

/// Whether an Ogg file (RFC 3533) consists of whole pages with right checksums, from its start to its end.
/// The decoder looks at no checksum: a damaged file would give noise, and damaged headers can make it crash.
/// \param file read from its start; where it stands afterwards is open
bool oggPagesAreIntact(BinaryFile& file);

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_OGGPAGES_H
