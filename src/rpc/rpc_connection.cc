// Calls and replies (RFC 5531 sections 8 and 9) are encoded and decoded by libtirpc; framing, sending and the
// transport that procedures see are ours.
#include "rpc/rpc_connection.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <vector>

#include "rpc/record_encoder.h"
#include "rpc/rpc_service.h"

namespace faxtray {

using namespace std::chrono_literals;

static constexpr size_t piece_size = 64 * 1024;            // bytes read at once
static constexpr size_t largest_reply = 64 * 1024 * 1024;  // bytes
static constexpr auto request_time = 10s;                  // for a whole request to arrive
static constexpr auto reply_time = 30s;                    // without a byte of a reply taken

// What libtirpc's macros and functions call for this transport.
struct transport_operations {
    static bool_t receive(SVCXPRT *, rpc_msg *) { return FALSE; }  // never called: dispatch() decodes calls
    static enum xprt_stat status(SVCXPRT *transport)
    {
        return rpc_connection::of(transport).broken_ ? XPRT_DIED : XPRT_IDLE;
    }
    // xdrproc_t is the type of no routine: RPC is older than that sanitizer.
#ifdef __clang__
    __attribute__((no_sanitize("function")))
#endif
    static bool_t
    get_arguments(SVCXPRT *transport, xdrproc_t xdr, void *arguments)
    {
        return xdr(&rpc_connection::of(transport).arguments_, arguments);
    }
    static bool_t reply(SVCXPRT *transport, rpc_msg *message)
    {
        return rpc_connection::of(transport).reply(message);
    }
    static bool_t free_arguments(SVCXPRT *, xdrproc_t xdr, void *arguments)
    {
        xdr_free(xdr, arguments);
        return TRUE;
    }
    static void destroy(SVCXPRT *transport)
    {
        rpc_connection::of(transport).broken_ = true;
    }
    static bool_t control(SVCXPRT *, const u_int, void *)
    {
        return FALSE;
    }
};

rpc_connection::rpc_connection(unique_fd fd, const sockaddr_in &peer, uint64_t serial,
                               const rpc_service_t &service, rpc_time now)
    : service_(service), fd_(std::move(fd)), serial_(serial), peer_(peer), request_(service.largest_request),
      begun_(now), taken_(now)
{
    using operations = transport_operations;
    static constexpr struct SVCXPRT::xp_ops table = {operations::receive,        operations::status,
                                                     operations::get_arguments,  operations::reply,
                                                     operations::free_arguments, operations::destroy};
    static constexpr struct SVCXPRT::xp_ops2 more = {operations::control};
    transport_.xp_fd = fd_.get();
    transport_.xp_ops = &table;
    transport_.xp_ops2 = &more;
    transport_.xp_addrlen = sizeof peer_;
    transport_.xp_rtaddr = {sizeof peer_, sizeof peer_, &peer_};
    transport_.xp_p1 = this;
    transport_.xp_p3 = &extension_;
}

// Requests

bool rpc_connection::receive(rpc_time now)
try {
    static char piece[piece_size];
    const ssize_t n = recv(fd_.get(), piece, sizeof piece, MSG_DONTWAIT);
    if (n < 0)
        return errno == EAGAIN || errno == EINTR;
    if (n == 0)
        return false;
    if (!request_.has_begun())
        begun_ = now;
    return request_.take(piece, static_cast<size_t>(n));
} catch (const std::bad_alloc &) {
    return false;
}

bool rpc_connection::serve(rpc_time now)
{
    if (!dispatch() || broken_)
        return false;
    return put_off_ || finish_request(now);
}

// On to the next, which may have arrived already.
bool rpc_connection::finish_request(rpc_time now)
{
    begun_ = now;
    return !broken_ && request_.next();
}

bool rpc_connection::answer(xdrproc_t xdr, void *result, rpc_time now)
{
    put_off_ = false;
    svc_sendreply(&transport_, xdr, result);
    return finish_request(now);
}

bool rpc_connection::serve_again(rpc_time now)
{
    put_off_ = false;
    return serve(now);
}

// False for what is no call: nothing behind it can be trusted.
bool rpc_connection::dispatch()
{
    // The first words by hand, since libtirpc's decoder refuses other versions without saying so.
    uint32_t words[3];  // xid, direction, RPC version
    if (request_.length() < sizeof words)
        return false;
    memcpy(words, request_.record(), sizeof words);
    if (ntohl(words[1]) != CALL)
        return false;
    xid_ = ntohl(words[0]);
    transport_.xp_verf = _null_auth;
    if (ntohl(words[2]) != RPC_MSG_VERSION) {
        rpc_msg denial = {};
        denial.rm_direction = REPLY;
        denial.rm_reply.rp_stat = MSG_DENIED;
        denial.rjcted_rply.rj_stat = RPC_MISMATCH;
        denial.rjcted_rply.rj_vers = {RPC_MSG_VERSION, RPC_MSG_VERSION};
        return reply(&denial);
    }

    char credentials[MAX_AUTH_BYTES], verifier[MAX_AUTH_BYTES];
    rpc_msg call = {};
    call.rm_call.cb_cred.oa_base = credentials;
    call.rm_call.cb_verf.oa_base = verifier;
    xdrmem_create(&arguments_, request_.record(), static_cast<u_int>(request_.length()), XDR_DECODE);
    if (!xdr_callmsg(&arguments_, &call)) {
        svcerr_auth(&transport_, AUTH_BADCRED);
        return true;
    }
    svc_req request = {};
    request.rq_xprt = &transport_;
    request.rq_prog = call.rm_call.cb_prog;
    request.rq_vers = call.rm_call.cb_vers;
    request.rq_proc = call.rm_call.cb_proc;
    request.rq_cred = call.rm_call.cb_cred;
    // Who asks is in the arguments. Credentials are not looked at; those that need an exchange are rejected.
    if (request.rq_cred.oa_flavor != AUTH_NONE && request.rq_cred.oa_flavor != AUTH_SYS)
        svcerr_auth(&transport_, AUTH_REJECTEDCRED);
    else if (request.rq_prog != service_.program)
        svcerr_noprog(&transport_);
    else if (request.rq_vers != service_.version)
        svcerr_progvers(&transport_, service_.version, service_.version);
    else
        service_.dispatch(&request, &transport_);
    return true;
}

// Replies

// Sends as much of `pieces` as the socket takes. The number of bytes, or -1 when the connection is broken.
static ssize_t send_pieces(int fd, const std::vector<iovec> &pieces)
{
    static constexpr int flags = MSG_NOSIGNAL | MSG_DONTWAIT;
    msghdr message = {};
    message.msg_iov = const_cast<iovec *>(pieces.data());
    message.msg_iovlen = pieces.size();
    // One piece, as in most replies, is sent faster by send(2).
    const ssize_t n = pieces.size() == 1 ? send(fd, pieces[0].iov_base, pieces[0].iov_len, flags)
                                         : sendmsg(fd, &message, flags);
    return n < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : n;
}

// Sends, and keeps what the socket does not take. False when the reply cannot be encoded, nothing of it
// having been sent, or when the connection is broken.
bool rpc_connection::reply(rpc_msg *message)
try {
    static record_encoder encoder;  // one for all connections: a reply is sent, or copied, before the next
    message->rm_xid = xid_;
    const std::vector<iovec> &pieces = encoder.encode(message, largest_reply);
    if (pieces.empty() || broken_)
        return false;
    broken_ = true;  // until the whole of it is sent or kept
    const ssize_t n = send_pieces(fd_.get(), pieces);
    if (n < 0)
        return false;
    auto skipped = static_cast<size_t>(n);
    for (const iovec &piece : pieces) {
        const size_t skip = std::min(skipped, piece.iov_len);
        skipped -= skip;
        unsent_.append(static_cast<const char *>(piece.iov_base) + skip, piece.iov_len - skip);
    }
    sent_ = 0;
    broken_ = false;
    return true;
} catch (const std::bad_alloc &) {
    return false;
}

bool rpc_connection::send_more(rpc_time now)
{
    const ssize_t n =
        send(fd_.get(), unsent_.data() + sent_, unsent_.size() - sent_, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n < 0)
        return errno == EAGAIN || errno == EINTR;
    taken_ = now;
    sent_ += static_cast<size_t>(n);
    if (sent_ == unsent_.size())
        std::string().swap(unsent_);
    return true;
}

bool rpc_connection::is_overdue(rpc_time now) const
{
    if (wants_room())
        return now - std::max(taken_, begun_) > reply_time;
    if (put_off_ || !request_.has_begun() || now - begun_ < request_time)
        return false;
    // What arrived while we were busy counts in the client's favour, once.
    char byte;
    return now - begun_ > 2 * request_time || recv(fd_.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0;
}

}  // namespace faxtray
