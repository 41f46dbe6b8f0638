// record_assembler: puts RPC requests together from a TCP stream, in whatever fragments and pieces they
// arrive (record marking, RFC 5531 section 11). No sockets here: bytes in, records out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace faxtray {

class record_assembler {
public:
    // A record longer than `largest` bytes, the marks of its fragments included, is refused.
    explicit record_assembler(size_t largest) : largest_(largest) {}

    // Takes the next bytes of the stream. False once the record under way is refused: where the next one
    // begins is then unknown. The mark alone decides, so no memory is taken for what is only claimed. Throws
    // std::bad_alloc.
    bool take(const char *bytes, size_t n);

    bool is_whole() const { return whole_; }                               // a record is complete
    bool has_begun() const { return !whole_ && buffer_.size() > start_; }  // some bytes of one are there

    // The complete record, until next() or take().
    char *record() { return buffer_.data() + start_; }
    size_t length() const { return record_ - start_; }

    // Drops the complete record and looks for the next one in what has arrived behind it. False as take().
    // All memory is given back when nothing has.
    bool next();

    size_t memory() const { return buffer_.capacity(); }  // bytes

private:
    bool parse();

    size_t largest_;
    // The record so far, its marks left out, is [start_, record_); what has not been parsed begins at raw_.
    std::string buffer_;
    size_t start_ = 0, record_ = 0, raw_ = 0;
    size_t counted_ = 0;  // bytes of the record under way, marks and claimed ones included
    uint32_t fragment_left_ = 0;
    bool last_fragment_ = false, whole_ = false;
};

}  // namespace faxtray
