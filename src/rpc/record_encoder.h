// record_encoder: encodes one RPC reply (RFC 4506) as a record of a single fragment (RFC 5531 section 11),
// ready for writev(2). Long runs of bytes, such as the chunk of a file, are not copied: they are sent from
// where they are.
#pragma once

#include <rpc/rpc.h>
#include <sys/uio.h>

#include <cstddef>
#include <vector>

namespace faxtray {

class record_encoder {
public:
    // Encodes `reply`. The pieces, in order; valid until the next call, and as long as what `reply` points
    // to. Empty when it cannot be encoded or is longer than `largest` bytes. Throws std::bad_alloc.
    const std::vector<iovec> &encode(rpc_msg *reply, size_t largest);

private:
    friend struct record_encoder_operations;

    // Bytes that stay where they are, and where in the encoded rest they belong.
    struct long_run_t {
        size_t position;
        iovec bytes;
    };
    bool grow(size_t n);
    bool put(const void *bytes, size_t n);
    void list_pieces();

    std::vector<char> encoded_;  // of which `used_` bytes count; keeps its size between replies
    std::vector<long_run_t> long_runs_;
    std::vector<iovec> pieces_;
    size_t used_ = 0, total_ = 0, largest_ = 0;
};

}  // namespace faxtray
