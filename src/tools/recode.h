// recode: re-codes a fax file, in place or into another file.
#pragma once

#include <string>

namespace faxtray {

// Both return true, or false with a message on standard error and nothing changed. A warning says what
// re-coding costs: lines of MH pages, and whatever follows the pages that the header counts. A signal that
// ends the program takes effect at the next page, or once the result is in place.

// Re-codes the file to DF code `df` in place. At any moment it is whole, the old one or the new; it keeps its
// mode and, for root, its owner. Refuses to drop what follows the counted pages, unless `force` is set.
bool recode_in_place(const std::string &path, int df, bool force);

// Writes the re-coded fax to `to`, whole or not at all; a regular file of that name is replaced, and "-" is
// standard output. A fax that has that coding already is copied.
bool recode_to(const std::string &path, const std::string &to, int df);

}  // namespace faxtray
