// munged_name: names compared loosely: white space and punctuation ignored, case folded.
#pragma once

#include <string>

namespace faxtray {

// 0 when the names are the same, else negative or positive. Kept: a skipped character at the very end
// counts, so a name that ends in punctuation or white space does not equal itself.
int munged_strcmp(const char *a, const char *b);

// A key for ordered look-up: two names that equal themselves are munged_strcmp-equal exactly when
// their keys are equal, and keys compared with munged_less stand in munged_strcmp's order.
std::string munged_key(const char *name);
bool equals_itself(const char *name);

struct munged_less {
    bool operator()(const std::string &a, const std::string &b) const noexcept;
};

}  // namespace faxtray
