// munged_name: names compared loosely: white space and punctuation ignored, case folded (ASCII).
//
// Two names are the same when both are empty, or when neither ends in a skipped character and what is
// left of them is the same.
#pragma once

#include <string>

namespace faxtray {

// 0 when the names are the same, else negative or positive. Kept: a skipped character at the very end
// counts, so a name that ends in punctuation or white space does not equal itself.
int munged_strcmp(const char *a, const char *b);

// A key for ordered look-up. Two names that equal themselves are the same exactly when their keys are
// equal. Among names of 7-bit characters keys compared with munged_less stand in munged_strcmp's order;
// of two equal keys that do not equal themselves munged_strcmp calls each less than the other.
std::string munged_key(const char *name);
bool equals_itself(const char *name);

// Characters compare signed, the end as 0; a key before the longer one that goes on with zeros.
struct munged_less {
    bool operator()(const std::string &a, const std::string &b) const noexcept;
};

}  // namespace faxtray
