// pbm: pages as portable bitmaps (PBM, the raw form P4), which have the bits of our lines.
#pragma once

#include <string>

namespace faxtray {

// Writes each page of a fax file to "PREFIX-001.pbm" and so on, each whole or not at all; files of these
// names are replaced. False with a message on standard error; the pages before it stay.
bool write_pbm_pages(const std::string &path, const std::string &prefix);

}  // namespace faxtray
