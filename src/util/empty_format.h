// empty_format: texts from outside that are printed as a format without arguments.
#pragma once

#include <string>

namespace faxtray {

// `text` (null: "") with every printf conversion replaced by what it would print of nothing: "%" for "%%",
// "(null)" for a string, "(nil)" for a pointer, "0" for a number, else nothing. Flags, widths and precisions
// are passed over, so the result is never much longer than the text. Anything else stands as it is.
std::string print_empty_format(const char *text);

}  // namespace faxtray
