// open_document: opens a document of whatever format as a source of pages.
#pragma once

#include "document/ghostscript.h"
#include "document/page_source.h"
#include "util/owned.h"

namespace faxtray {

struct open_settings_t {
    std::string temporary = "/tmp";  // where the scratch directory of gs is made
    unsigned seconds = 900;          // that gs may take for a document
};

// Tells TIFF, PNG, PBM, PDF and PostScript apart by their first bytes, and has gs draw the last two. `fd` may
// be a pipe: what cannot be read twice is copied to an unnamed file first. Null with the reason in `why`.
page_source_ptr open_document(unique_fd fd, const open_settings_t &settings,
                              const ending_signals_held &signals, reason_t *why);

}  // namespace faxtray
