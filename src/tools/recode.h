// recode: re-codes a fax file, in place or into another file.
#pragma once

#include <string>

namespace faxtray {

// Re-codes the file to DF code `df` in place. At any moment it is whole, the old one or the new; it keeps its
// mode and, for root, its owner. False with a message on standard error and the file as it was. A warning
// says what re-coding an MH file costs.
bool recode_in_place(const std::string &path, int df);

// Writes the re-coded fax to `to`, whole or not at all; a regular file of that name is replaced. A fax that
// has that coding already is copied. False with a message on standard error.
bool recode_to(const std::string &path, const std::string &to, int df);

}  // namespace faxtray
