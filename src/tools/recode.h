// recode: another coding for a fax file, in place or in a file of its own.
#pragma once

#include <string>

namespace faxtray {

// Re-codes to DF code `df` in place: the file is then whole, old or new, with the mode it had. False with a
// message on standard error, the file as it was. A warning tells what re-coding an MH file costs.
bool recode_in_place(const std::string &path, int df);

// Puts the re-coded fax into `to`, whole or not at all; a regular file of that name is replaced. A fax that
// has that coding already is copied. False with a message on standard error.
bool recode_to(const std::string &path, const std::string &to, int df);

}  // namespace faxtray
