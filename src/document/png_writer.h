// png_writer: writes pages as PNG images, by libpng.
#pragma once

#include "document/page_image.h"

namespace faxtray {

// Both write to `fd`, which may be a pipe, and return true, or false with a message on standard error; what
// was written is then worth nothing. Flushing and the file's name are the caller's.

// The page, every pixel of it: one bit a pixel, with its resolution, so that viewers keep the aspect.
bool write_png(const page_image_t &page, int vertical_dpi, int fd);

// A preview: 8 bits of grey a pixel.
bool write_png(const grey_image_t &image, int fd);

}  // namespace faxtray
