// SPDX-License-Identifier: MIT
/* The one implementation of stb_image_write: third-party code alone, so without our warnings. */
#define STBI_WRITE_NO_STDIO
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb/stb_image_write.h>
