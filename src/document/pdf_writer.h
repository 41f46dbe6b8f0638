// pdf_writer: writes faxes as PDF, by qpdf.
#pragma once

#include "document/fax_pages.h"

namespace faxtray {

// Writes `pages` of `fax`, which has just been opened, to `fd`, which may be a pipe. Each is a page of its
// own size with one image, coded by ITU-T T.6: every pixel of the page, damage concealed. A page without
// lines becomes one white line. The document's information names the sender, the time of reception and the
// pages. The same fax, received at the same time, makes the same bytes. One page at a time is in memory.
//
// Returns true, or false with a message on standard error; what was written is then worth nothing. Flushing
// and the file's name are the caller's.
bool write_pdf(fax_pages_t *fax, page_range_t pages, int fd);

}  // namespace faxtray
