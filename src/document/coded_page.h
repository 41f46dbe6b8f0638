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

// What read_ccitt_page would make of a page.
struct page_outline_t {
    long lines;
    size_t copied;  // bytes that would be copied; 0 if it would be coded anew
};

// Reads the next page, and finds that out. False with a message on standard error.
bool outline_page(fax_pages_t *fax, page_outline_t *outline);

// As read_ccitt_page, for a page whose outline is known: a clean one is not decoded again.
bool read_outlined_page(fax_pages_t *fax, const page_outline_t &outline, coded_page_t *page);

// For PDF and PostScript: a length of `pixels` at `dpi` in points (1/72 inch), as "609.88". Rounded down, so
// that a page drawn at its own resolution gets no further row or column.
std::string points(long pixels, int dpi);

}  // namespace faxtray
