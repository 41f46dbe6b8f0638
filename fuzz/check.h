// How a fuzzer reports that something which must always hold
// did not: libFuzzer then keeps the input, a test fails.
#pragma once

#include <stdexcept>
#include <string>

namespace faxtray {

inline void check(bool holds, const char *file = __builtin_FILE(), int line = __builtin_LINE())
{
    if (!holds)
        throw std::logic_error(std::string(file) + ":" + std::to_string(line) + ": does not hold");
}

}  // namespace faxtray
