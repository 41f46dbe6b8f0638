// fast_decoder: decodes undamaged lines of 1728 pixels, several codes at a time. It stops in front of the
// first line that is anything but plain (damaged, short, with runs of 0 where none is needed, near the end of
// the data), which then is for the walk of the code trees, and so it never judges what is wrong.
#pragma once

#include <cstddef>

#include "codec/line_changes.h"

namespace faxtray {

// Takes the next line; `same` when it is the line before it.
using changes_callback = void (*)(void *user, const line_changes_t &line, bool same);

struct fast_page_t {
    const unsigned char *data;
    size_t length;        // bytes
    size_t bit;           // where the next line begins, behind its EOL and tag
    line_changes_t line;  // the line before it, for two-dimensional coding
    changes_callback found;
    void *user;
};

// Pass on lines and move on to the first one that they leave alone. An MH or MR line is passed on with the
// EOL behind it (and the tag: `one_dimensional` tells of the next line), an MMR line when it is complete.
void fast_MH_lines(fast_page_t &page);
void fast_MR_lines(fast_page_t &page, bool &one_dimensional);
void fast_MMR_lines(fast_page_t &page);

}  // namespace faxtray
