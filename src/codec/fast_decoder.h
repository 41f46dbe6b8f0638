// fast_decoder: decodes undamaged lines of 1728 pixels, several codes at a time. It stops in front of the
// first line that is anything but plain (damaged, short, with runs of 0 where none is needed, near the end of
// the data), which then is for the walk of the code trees, and so it never judges what is wrong.
#pragma once

#include <cstddef>

#include "codec/line_changes.h"

namespace faxtray {

// Takes the next line; `same` when it is the one that this took before.
using changes_callback = void (*)(void *user, const line_changes_t &line, bool same);

struct fast_page_t {
    const unsigned char *data;
    size_t length;         // bytes
    int df;                // 0 (MH), 1 (MR), 3 (MMR)
    size_t bit;            // where the next line begins, behind its EOL and tag
    bool one_dimensional;  // as that tag says (MR)
    line_changes_t line;   // the line before it
    changes_callback found;
    void *user;
    line_changes_t room = {};  // for another line
};

// Passes lines on and moves the page on to the first one that it leaves alone. An MH or MR line is passed on
// when its EOL is there (and the tag), an MMR line when it is complete. Returns their number.
long fast_lines(fast_page_t &page);

}  // namespace faxtray
