// SPDX-License-Identifier: MIT
/* The one implementation of miniaudio, with stb_vorbis as its OGG decoder: the header of stb_vorbis stands
   before miniaudio, its code after it. Only third-party code is compiled here, so without our warnings. */
#define STB_VORBIS_HEADER_ONLY
#include <stb/stb_vorbis.h>

#define MINIAUDIO_IMPLEMENTATION
#include <miniaudio.h>

#undef STB_VORBIS_HEADER_ONLY
#include <stb/stb_vorbis.h>
