// Fragments are moved together in place: a record of one fragment, as nearly all are, is never moved.
#include "rpc/record_assembler.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

namespace faxtray {

static constexpr uint32_t last_fragment = 0x80000000;
static constexpr size_t mark_size = sizeof(uint32_t);

bool record_assembler::take(const char *bytes, size_t n)
{
    // Requests that were answered go only now, all at once.
    buffer_.erase(0, start_);
    record_ -= start_;
    raw_ -= start_;
    start_ = 0;
    buffer_.append(bytes, n);
    return parse();
}

bool record_assembler::next()
{
    whole_ = last_fragment_ = false;
    counted_ = 0;
    start_ = record_ = raw_;
    if (raw_ == buffer_.size()) {
        std::string().swap(buffer_);
        start_ = record_ = raw_ = 0;
    }
    return parse();
}

bool record_assembler::parse()
{
    while (!whole_) {
        const size_t arrived = buffer_.size() - raw_;
        if (fragment_left_ > 0) {
            const size_t n = std::min<size_t>(arrived, fragment_left_);
            if (n == 0)
                return true;
            if (record_ != raw_)
                memmove(buffer_.data() + record_, buffer_.data() + raw_, n);
            record_ += n;
            raw_ += n;
            fragment_left_ -= static_cast<uint32_t>(n);
        } else if (last_fragment_) {
            whole_ = true;
        } else {
            if (arrived < mark_size)
                return true;
            uint32_t mark;
            memcpy(&mark, buffer_.data() + raw_, mark_size);
            mark = ntohl(mark);
            raw_ += mark_size;
            fragment_left_ = mark & ~last_fragment;
            last_fragment_ = (mark & last_fragment) != 0;
            counted_ += mark_size + fragment_left_;  // marks count too: empty fragments must come to an end
            if (counted_ > largest_)
                return false;
        }
    }
    return true;
}

}  // namespace faxtray
