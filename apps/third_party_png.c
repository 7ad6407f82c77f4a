/* The one implementation of stb_image_write. Only third-party code is compiled here, so without our warnings.
 */
#define STBI_WRITE_NO_STDIO
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb/stb_image_write.h>
