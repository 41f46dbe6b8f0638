// tiff_reader: reads TIFF files, by libtiff: pages of one bit, grey and colour, in strips or tiles, coded in
// whatever way libtiff knows. Thumbnails and masks are no pages.
#pragma once

#include "document/page_source.h"
#include "util/owned.h"

namespace faxtray {

// A source for the regular file `fd`, from its beginning. What ends before its data do is refused; damaged
// fax pages are read as far as they go, and are white from there on. Null, with the reason in `why`, if it is
// no TIFF.
page_source_ptr open_tiff(unique_fd fd, std::string *why);

}  // namespace faxtray
