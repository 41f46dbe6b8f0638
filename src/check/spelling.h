// spelling: what somebody may have meant to write.
#pragma once

#include <string>
#include <vector>

namespace faxtray {

// The fewest single letters to insert, leave out, replace or swap with the next that turn one text into the
// other, upper and lower case being the same.
size_t edit_distance(const std::string &a, const std::string &b);

// The word of `known` that is nearest to `text`, if it is near enough to have been meant; else "".
std::string nearest(const std::string &text, const std::vector<std::string> &known);

// ": did you mean 'WORD'?", or "" without a word near enough.
std::string did_you_mean(const std::string &text, const std::vector<std::string> &known);

}  // namespace faxtray
