// tiff_oracle: what libtiff makes of a page, in memory, the bit sent first in the least significant place
// (FillOrder 2). Codings by DF code: 0 (MH), 1 (MR), 3 (MMR). A test fails on whatever libtiff complains of.
#pragma once

#include "support/pages.h"

namespace faxtray {

// Coded without an end of page (MMR: with the end-of-facsimile-block). `fine`: K is 4 in MR, else 2.
std::string tiff_encode(const page_t &page, int df, int width = 1728, bool fine = true);

page_t tiff_decode(std::string bytes, int df, size_t lines, int width = 1728);

// The pages of a TIFF file whose lines have 1728 pixels.
std::vector<page_t> tiff_pages(const std::string &path);

}  // namespace faxtray
