// bounded_text: a message assembled piece by piece in a buffer of fixed size.
#pragma once

#include <cstddef>

namespace faxtray {

class bounded_text {
public:
    // Starts empty, in the caller's buffer of `size` bytes (at least 4). The text is always terminated.
    bounded_text(char *buffer, size_t size);

    // Appends `piece`. The first piece that does not fit is cut and the text ends in "..."; later pieces are
    // ignored.
    void append(const char *piece);

    void drop_last(char ch);  // removes the last character if it is `ch` and the text was not cut

private:
    char *text_;
    size_t size_;
    size_t end_ = 0;  // offset of the terminator; size_ once the text was cut
};

}  // namespace faxtray
