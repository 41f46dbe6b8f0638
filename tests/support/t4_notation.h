// t4_notation: coded pages written down as the names of their codes.
#pragma once

#include <string>

namespace faxtray {

// Bytes of "EOL+1 w4 b1728 V0 | 0001": modes (P, H, V0, VR1...), EOLs without and with a tag, runs (one of 64
// pixels or more ends in the code for less than 64), bits as they stand, and zeros up to the next 16-bit
// word.
std::string t4_coded(const std::string &text);

}  // namespace faxtray
