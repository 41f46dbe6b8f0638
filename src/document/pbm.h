// pbm: writes pages as portable bitmaps (PBM in its raw form, P4), whose rows are our lines, bit for bit.
#pragma once

#include <string>

#include "document/page_image.h"

namespace faxtray {

// Writes one page. False with a message on standard error.
bool write_pbm(const page_image_t &page, int fd);

// Writes each page of a fax file to "PREFIX-001.pbm" and so on, each whole
// or not at all; files of these names are replaced. False with a message on
// standard error at the first failure; the pages written before it stay.
bool write_pbm_pages(const std::string &path, const std::string &prefix);

}  // namespace faxtray
