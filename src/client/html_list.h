// html_list: an inbox as a page for browsers, in a directory of its own: index.html, and for each fax a PDF
// and a thumbnail of its first page.
#pragma once

#include <deque>

#include "client/client_session.h"

namespace faxtray {

// Brings the page in the directory of the command line up to date with `faxes`, a listing: what is there of a
// fax that has not changed is not fetched again, and what is there of faxes that are gone is removed. The
// directory is made if it is missing (0700, files 0600); one that holds other files than ours is refused.
// A fax that cannot be fetched, or shown, is listed with a note. Failures are printed.
exit_status write_html_list(session &s, const std::deque<fax_entry> &faxes);

}  // namespace faxtray
