// Failures of a large group can exceed any buffer: the message is cut visibly, never overflowed.
#include "daemon/bounded_text.h"

#include <cstring>

namespace faxtray {

static constexpr char ellipsis[] = "...";

bounded_text::bounded_text(char *buffer, size_t size) : text_(buffer), size_(size)
{
    text_[0] = '\0';
}

void bounded_text::append(const char *piece)
{
    const size_t room = size_ - end_, n = strlen(piece) + 1;
    if (n <= room) {
        memcpy(text_ + end_, piece, n);
        end_ += n - 1;
    } else if (room > 0) {
        // Fill the buffer, then overwrite its end: the cut is the same wherever the piece began.
        memcpy(text_ + end_, piece, room);
        memcpy(text_ + size_ - sizeof ellipsis, ellipsis, sizeof ellipsis);
        end_ = size_;
    }
}

void bounded_text::drop_last(char ch)
{
    if (end_ > 0 && text_[end_ - 1] == ch)  // of a cut text that is the terminator
        text_[--end_] = '\0';
}

}  // namespace faxtray
