// empty_format: prints a text from outside as if it were a printf format for which no arguments are given.
// Clients rely on what "%%" and the like become; passing the text to printf itself would read arguments that
// are not there.
#pragma once

#include <string>

namespace faxtray {

// `text` (null: "") with every printf conversion replaced: "%%" by "%", a string by "(null)", a pointer by
// "(nil)", a number by "0", any other by nothing. Flags, widths and precisions are dropped, so the result is
// never much longer than the text. All else is unchanged. May throw std::bad_alloc.
std::string print_empty_format(const char *text);

}  // namespace faxtray
