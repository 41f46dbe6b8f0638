// empty_format: texts from outside that used to be given to printf without arguments.
#pragma once

#include <string>

namespace faxtray {

// The text as printf would print it if every argument were zero: "%%" gives "%", "%s" "(null)", numbers 0,
// "%n" nothing; anything else stands as it is.
std::string print_empty_format(const char *text);

}  // namespace faxtray
