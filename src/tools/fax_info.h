// fax_info: prints what is in a fax file.
#pragma once

#include <string>

namespace faxtray {

// Prints the header and a line for each page, as text or JSON. False with a message on standard error if the
// file is damaged or a page cannot be decoded; what could be read is printed nevertheless.
bool print_fax_info(const std::string &path, bool json);

}  // namespace faxtray
