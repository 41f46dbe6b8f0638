// coded_page: pages of a fax as documents hold them: coded, and so that every reader can read them.
#pragma once

#include <string>
#include <vector>

#include "document/fax_pages.h"

namespace faxtray {

struct coded_page_t {
    std::vector<unsigned char> data;  // the bit sent first is the least significant
    long lines = 0;                   // at least one
    bool copied = false;              // as it was in the file, less what followed its last line
    t4_page_counts_t counts = {};     // if not copied: damage
};

// Reads the next page in coding `df`, DF_MH, DF_MR or DF_MMR. The data of a clean page that has this coding
// are copied (codec/page_coding.h says what is clean and what is left out); every other page is decoded,
// damage concealed, and coded anew. A page without lines becomes one white line. False with a message on
// standard error.
bool read_coded_page(fax_pages_t *fax, int df, coded_page_t *page);

// The same in T.6, with the bit sent first in the most significant place, as PDF and PostScript want it.
bool read_ccitt_page(fax_pages_t *fax, coded_page_t *page);

// Reads the next page, and counts the lines that these would give it. False with a message on standard error.
bool count_page_lines(fax_pages_t *fax, long *lines);

// For PDF and PostScript: a length of `pixels` at `dpi` in points (1/72 inch), as "609.88". Rounded down, so
// that a page drawn at its own resolution gets no further row or column.
std::string points(long pixels, int dpi);

}  // namespace faxtray
