// pbm_reader: reads portable bitmaps (PBM), raw (P4) and plain (P1), one image or several one after another.
#pragma once

#include "document/page_source.h"
#include "util/owned.h"

namespace faxtray {

// A source for the regular file `fd`, from its beginning. Null, with the reason in `why`, if it cannot be
// read.
page_source_ptr open_pbm(unique_fd fd, std::string *why);

}  // namespace faxtray
