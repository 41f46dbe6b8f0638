// pixel_picture: a grey image for terminals that show pixels, by the protocols of sixel and kitty. It is made
// by chafa's library; a build without that knows no such terminals.
#pragma once

#include <string>

#include "document/page_image.h"

namespace faxtray {

// Whether the terminal that the environment describes shows pixels.
bool terminal_shows_pixels();

// The image with the codes that show it in a terminal whose character cells have that many pixels each; "" if
// it shows none.
std::string pixel_picture(const grey_image_t &image, int cell_width, int cell_height);

}  // namespace faxtray
