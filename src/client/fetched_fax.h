// fetched_fax: faxes on their way from the server. Failures are printed, and returned as the exit status.
#pragma once

#include "client/client_session.h"
#include "document/page_image.h"

namespace faxtray {

// Passes all bytes of a fax to `sink`, which prints why it stops, and shows on a terminal how far it is.
exit_status fetch_fax(session &s, const fax_entry &fax, const byte_sink &sink);

// Fetches a fax into a file without a name, open for reading and writing.
exit_status fetch_file(session &s, const fax_entry &fax, unique_fd *file);

// The same, and opens it there, to be read by pages.
exit_status fetch_pages(session &s, const fax_entry &fax, fax_pages_t *pages);

// Moves on to the first page of `range`, and sets a `last` of 0. EXIT_REFUSED if the fax does not hold all of
// these pages whole; `range` is then cut to those that it holds, a `last` before the first page if there are
// none. What fails later is not the fax's fault.
exit_status find_whole_pages(fax_pages_t *pages, page_range_t *range);

// Decodes the next page and moves on to the page after it.
exit_status decode_next_page(fax_pages_t *pages, page_image_t *image);

}  // namespace faxtray
