// bounded_text: a message put together piece by piece in a buffer of fixed size.
#pragma once

#include <cstddef>

namespace faxtray {

class bounded_text {
public:
    // Begins empty, in `size` bytes (at least 4) of the caller's; always terminated.
    bounded_text(char *buffer, size_t size);

    // The first piece that does not fit is cut, the text then ends in "...", and nothing more is taken.
    void append(const char *piece);

    void drop_last(char ch);  // when the text ends in it

private:
    char *text_;
    size_t size_;
    size_t end_ = 0;  // where the terminator stands; size_ when full
};

}  // namespace faxtray
