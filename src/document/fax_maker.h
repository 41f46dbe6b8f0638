// fax_maker: makes a fax file of a document.
#pragma once

#include "document/fax_file_writer.h"
#include "document/page_source.h"
#include "util/ending_signals.h"

namespace faxtray {

// What the fax shall be like.
struct fax_wishes_t {
    int df = -1;                    // DF code; -1: that of the pages if all have the same, else MMR
    int vr = -1;                    // VR code; -1: fine, unless all pages have about 98 lines an inch
    fax_attributes_t call, others;  // of the header
};

// Writes a fax of all pages of `source`, which has just been opened, to the empty regular file `fd`. Coded
// pages that are clean go over as they are, all others are coded anew; one page at a time is in memory.
// `pages` gets their number. False with the reason, also once a page is done and one of `signals` has come;
// what was written is then worth nothing.
bool make_fax(page_source *source, const fax_wishes_t &wishes, int fd, const ending_signals_held &signals,
              long *pages, reason_t *why);

}  // namespace faxtray
