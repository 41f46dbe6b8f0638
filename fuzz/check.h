// How a fuzzer says that something which always holds did not: libFuzzer keeps the input, a test tells.
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
