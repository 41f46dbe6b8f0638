// block_picture: a grey image in character cells, for terminals that show no pixels. A cell is two pixels,
// one above the other: the upper half of a block in one shade on a ground of the other.
#pragma once

#include <string>

#include "document/page_image.h"

namespace faxtray {

struct block_style_t {
    bool many_shades = true;  // the 26 greys of terminals with 256 colours, else the 4 of 16 colours
    bool half_blocks = true;  // the character set has them; else both pixels of a cell are one
};

// Lines of image.width cells, each ended by a reset of the colours and a line feed. Contrast is stretched: of
// fine print, scaled to so few pixels, only a shade is left.
std::string block_picture(const grey_image_t &image, const block_style_t &style);

}  // namespace faxtray
