// png_reader: reads PNG images, by libpng: one page of grey, on white paper where it is transparent.
#pragma once

#include "document/page_source.h"
#include "util/owned.h"

namespace faxtray {

// A source for the regular file `fd`, from its beginning. Null, with the reason in `why`, if it is no PNG.
page_source_ptr open_png(unique_fd fd, std::string *why);

}  // namespace faxtray
