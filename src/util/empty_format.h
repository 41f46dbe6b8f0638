// empty_format: texts from outside that used to be given to printf without arguments.
#pragma once

#include <string>

namespace faxtray {

// The text as printf would print it if every argument were zero: "%%" gives "%", "%s" "(null)", numbers 0,
// "%n" and the zero byte of "%c" nothing; anything else stands as it is. Flags, width and precision count,
// each of these two up to 4095. Null gives "".
std::string print_empty_format(const char *text);

}  // namespace faxtray
