#include "rpc_calls.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <rpc/pmap_clnt.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "protocol/records.h"

namespace faxtray {

void give_up(const char *what)
{
    perror(what);
    exit(1);
}

double now(clockid_t clock)
{
    struct timespec t;
    clock_gettime(clock, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

sockaddr_in local(u_short port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

u_short daemon_port()
{
    sockaddr_in address = local(0);
    return pmap_getport(&address, IN_PROG, IN_VERS, IPPROTO_TCP);
}

std::string make_call(rpcproc_t procedure, xdrproc_t xdr, void *argument)
{
    char bytes[1024];
    XDR xdrs;
    xdrmem_create(&xdrs, bytes + 4, sizeof bytes - 4, XDR_ENCODE);
    rpc_msg message = {};
    message.rm_direction = CALL;
    message.rm_call.cb_rpcvers = RPC_MSG_VERSION;
    message.rm_call.cb_prog = IN_PROG;
    message.rm_call.cb_vers = IN_VERS;
    message.rm_call.cb_proc = procedure;
    message.rm_call.cb_cred = message.rm_call.cb_verf = _null_auth;
    if (!xdr_callmsg(&xdrs, &message) || (xdr && !xdr(&xdrs, argument)))
        give_up("encode");
    const uint32_t length = xdr_getpos(&xdrs);
    const uint32_t mark = htonl(0x80000000U | length);
    memcpy(bytes, &mark, sizeof mark);
    return {bytes, 4 + length};
}

caller_t::caller_t(u_short port) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const sockaddr_in address = local(port);
    const int on = 1;
    if (!fd_ || connect(fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        setsockopt(fd(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0)
        give_up("connect");
}

void caller_t::send(const std::string &call)
{
    if (write(fd(), call.data(), call.size()) != static_cast<ssize_t>(call.size()))
        give_up("write");
}

size_t caller_t::receive()
{
    static char bytes[1 << 20];
    const ssize_t n = read(fd(), bytes, sizeof bytes);
    if (n <= 0)
        give_up("read");
    return take(bytes, static_cast<size_t>(n));
}

// Follows the record marks through `n` bytes of a reply.
size_t caller_t::take(const char *bytes, size_t n)
{
    while (n > 0) {
        if (left_ == 0) {
            const size_t part = std::min(n, sizeof mark_ - mark_bytes_);
            memcpy(mark_ + mark_bytes_, bytes, part);
            mark_bytes_ += part;
            bytes += part;
            n -= part;
            if (mark_bytes_ < sizeof mark_)
                return 0;
            uint32_t mark;
            memcpy(&mark, mark_, sizeof mark);
            mark = ntohl(mark);
            last_ = mark & 0x80000000U;
            left_ = mark & 0x7fffffffU;
            mark_bytes_ = 0;
        }
        const size_t part = std::min(n, left_);
        left_ -= part;
        reply_ += part;
        bytes += part;
        n -= part;
        if (left_ == 0 && last_)
            return std::exchange(reply_, 0);
    }
    return 0;
}

}  // namespace faxtray
