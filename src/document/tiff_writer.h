// tiff_writer: writes faxes as TIFF class F (RFC 2306), by libtiff.
#pragma once

#include "document/fax_pages.h"

namespace faxtray {

// Writes `pages` of `fax`, which has just been opened, to `fd`: a TIFF from offset 0 on, if `fd` is an empty
// file that is open for reading and writing; anything else, as a pipe, gets it by way of an unnamed file in
// $TMPDIR. The coded data of clean pages are copied, less the end-of-page code of MH and MR; damaged pages
// are coded anew, as they were concealed. A page without lines becomes one white line. One page at a time is
// in memory.
//
// Returns true, or false with a message on standard error; what was written is then worth nothing. Flushing
// and the file's name are the caller's.
bool write_tiff(fax_pages_t *fax, page_range_t pages, int fd);

}  // namespace faxtray
