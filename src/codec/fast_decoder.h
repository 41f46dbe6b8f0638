// fast_decoder: decodes undamaged lines of 1728 pixels, several codes at a time. It stops before the first
// line that is not plain (damaged, short, with needless runs of 0, near the end of the data) and leaves it to
// tree_walk, so that damage is judged in one place.
#pragma once

#include <cstddef>

#include "codec/line_changes.h"

namespace faxtray {

// Receives the next line; `same` if it is the line passed on before it.
using changes_callback = void (*)(void *user, const line_changes_t &line, bool same);

// A page and how far it has been decoded.
struct fast_page_t {
    const unsigned char *data;
    size_t length;         // bytes
    int df;                // data format: DF_MH, DF_MR, DF_MMR
    size_t bit;            // where the next line begins, after its EOL and tag
    bool one_dimensional;  // what that tag says (MR)
    line_changes_t line;   // the line above
    changes_callback found;
    void *user;                // for `found`
    line_changes_t room = {};  // scratch for another line
};

// Passes plain lines on to `found`, and moves `page` to the first line that is not. An MH or MR line is
// passed on when the EOL after it (and its tag) has been read, an MMR line when it is complete. Returns the
// number of lines passed on.
long fast_lines(fast_page_t &page);

}  // namespace faxtray
