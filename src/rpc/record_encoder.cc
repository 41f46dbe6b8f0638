// An XDR stream of our own: its operations write to the encoder's buffer, and note long runs instead of
// copying them.
#include "rpc/record_encoder.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

namespace faxtray {

static constexpr uint32_t last_fragment = 0x80000000;
static constexpr size_t mark_size = sizeof(uint32_t);
static constexpr size_t usual_size =
    32 * 1024;                                // of the buffer: what most replies need without their long runs
static constexpr size_t long_run = 8 * 1024;  // bytes from which a run is not copied; copying less is cheaper
static constexpr size_t most_long_runs = 500;  // writev(2) takes 1,024 pieces, two for each long run

// Makes room for more bytes. Exceptions must not pass through libtirpc, so no memory is a failed encoding.
bool record_encoder::grow(size_t n)
try {
    encoded_.resize(std::max(used_ + n, 2 * encoded_.size()));
    return true;
} catch (const std::bad_alloc &) {
    return false;
}

// False beyond the largest reply, or without memory.
inline bool record_encoder::put(const void *bytes, size_t n)
{
    if (n > largest_ - total_ || (used_ + n > encoded_.size() && !grow(n)))
        return false;
    memcpy(encoded_.data() + used_, bytes, n);
    used_ += n;
    total_ += n;
    return true;
}

// What xdr_... functions call.
struct record_encoder_operations {
    static record_encoder *self(XDR *xdrs) { return static_cast<record_encoder *>(xdrs->x_private); }

    static bool_t put_long(XDR *xdrs, const long *value) noexcept
    {
        const uint32_t word = htonl(static_cast<uint32_t>(*value));
        return self(xdrs)->put(&word, sizeof word);
    }
    static bool_t put_bytes(XDR *xdrs, const char *bytes, u_int n) noexcept
    try {
        record_encoder &encoder = *self(xdrs);
        if (n < long_run || encoder.long_runs_.size() == most_long_runs)
            return encoder.put(bytes, n);
        if (n > encoder.largest_ - encoder.total_)
            return FALSE;
        encoder.long_runs_.push_back({encoder.used_, {const_cast<char *>(bytes), n}});
        encoder.total_ += n;
        return TRUE;
    } catch (const std::bad_alloc &) {
        return FALSE;
    }
    static u_int position(XDR *xdrs) { return static_cast<u_int>(self(xdrs)->total_ - mark_size); }

    // A record is written from its beginning to its end; nothing is read, sought or lent.
    static bool_t get_long(XDR *, long *) { return FALSE; }
    static bool_t get_bytes(XDR *, char *, u_int) { return FALSE; }
    static bool_t set_position(XDR *, u_int) { return FALSE; }
    static int32_t *no_room(XDR *, u_int) { return nullptr; }
    static void destroy(XDR *) {}
    static bool_t control(XDR *, int, void *) { return FALSE; }
};

// The encoded bytes, cut where a long run belongs, and the runs between them.
void record_encoder::list_pieces()
{
    size_t from = 0;
    const auto add_encoded = [&](size_t to) {
        if (to > from)
            pieces_.push_back({encoded_.data() + from, to - from});
        from = to;
    };
    for (const long_run_t &run : long_runs_) {
        add_encoded(run.position);
        pieces_.push_back(run.bytes);
    }
    add_encoded(used_);
}

const std::vector<iovec> &record_encoder::encode(rpc_msg *reply, size_t largest)
{
    using operations = record_encoder_operations;
    static constexpr XDR::xdr_ops table = {
        operations::get_long,  operations::put_long, operations::get_bytes,
        operations::put_bytes, operations::position, operations::set_position,
        operations::no_room,   operations::destroy,  operations::control,
    };
    XDR xdrs = {};
    xdrs.x_op = XDR_ENCODE;
    xdrs.x_ops = &table;
    xdrs.x_private = this;

    pieces_.clear();
    long_runs_.clear();
    encoded_.resize(usual_size);  // the memory of an unusually long reply goes before the next
    encoded_.shrink_to_fit();
    largest_ = largest;
    used_ = total_ = mark_size;
    if (!xdr_replymsg(&xdrs, reply))
        return pieces_;
    const uint32_t mark = htonl(last_fragment | static_cast<uint32_t>(total_ - mark_size));
    memcpy(encoded_.data(), &mark, mark_size);
    list_pieces();
    return pieces_;
}

}  // namespace faxtray
