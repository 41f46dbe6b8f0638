// postscript_writer: writes faxes as PostScript, Level 2, by the conventions for document structure
// (DSC 3.0).
#pragma once

#include "document/fax_pages.h"

namespace faxtray {

// Writes `pages` of `fax`, which has just been opened, to `fd`, which may be a pipe. Each is a page of its
// own size with one image, coded by ITU-T T.6: every pixel of the page, damage concealed; a page without
// lines becomes one white line. The bytes are printable ASCII. One page at a time is in memory.
//
// Returns true, or false with a message on standard error; what was written is then worth nothing. Flushing
// and the file's name are the caller's.
bool write_postscript(fax_pages_t *fax, page_range_t pages, int fd);

}  // namespace faxtray
