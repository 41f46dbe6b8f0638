// munged_name: names compared loosely: white space and punctuation ignored, case folded (ASCII).
//
// Two names are the same if both are empty, or if neither ends in a skipped character and the remaining
// characters are the same.
#pragma once

#include <string>

namespace faxtray {

// 0 if the names are the same, else negative or positive. Kept: a skipped character at the very end counts,
// so a name that ends in punctuation or white space does not equal itself; a user of such a name cannot log
// in.
int munged_strcmp(const char *a, const char *b);

// A key for ordered look-up. Two names that equal themselves are the same exactly if their keys are equal.
// For names of 7-bit characters, munged_less orders the keys as munged_strcmp orders the names; two different
// names with one key, neither equal to itself, each compare less than the other.
std::string munged_key(const char *name);
bool equals_itself(const char *name);

// Compares characters as signed, and the end as 0; of two keys that differ only in zeros at the end, the
// shorter comes first.
struct munged_less {
    bool operator()(const std::string &a, const std::string &b) const noexcept;
};

}  // namespace faxtray
