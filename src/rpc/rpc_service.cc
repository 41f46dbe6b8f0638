// The select() loop over libtirpc's connections, with a descriptor to wake it in the set and a limit on how
// many connections are let in.
#include "rpc/rpc_service.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <rpc/pmap_clnt.h>
#include <rpc/rpc.h>
#include <rpc/rpc_com.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <bit>
#include <cerrno>

#include "util/owned.h"

namespace faxtray {

// How long one write waits for a client that does not read. libtirpc writes up to four times before it
// gives the connection up, so all others wait for under three seconds.
static constexpr struct timeval Send_timeout = {0, 700000};
// Descriptors kept free of connections, for files and children.
static constexpr int Reserve = 64;

static int listener = -1;

// Just over half of the largest reply, which so goes out in two even pieces. Measured with 256 KiB: less
// takes more writes, more (libtirpc allows 256 KiB) falls out of the processor's cache with every
// further connection, since each has a buffer of its own.
static u_int send_size(const rpc_service_t &service)
{
    return service.largest_reply / 2 + 1024;
}

// Options set on the listening socket are inherited by the connections it accepts. They get room for two
// replies, so that a client which does not read holds up nobody.
static int prepare_listener(int fd, u_int largest_reply)
{
    static constexpr int on = 1;
    const int room = 2 * static_cast<int>(largest_reply);
    if (fcntl(fd, F_SETFD, FD_CLOEXEC) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &Send_timeout, sizeof Send_timeout) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on) != 0)
        return 0;
    return setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room) == 0 ||
           setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &room, sizeof room) == 0;
}

// A socket that only this host reaches.
static unique_fd local_socket()
{
    unique_fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd && (bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
               listen(fd.get(), SOMAXCONN) != 0))
        fd.reset();
    return fd;
}

static SVCXPRT *create_transport(const rpc_service_t &service)
{
    // With a limit, libtirpc reads without blocking: a request is served when it is there whole.
    int limit = static_cast<int>(service.largest_request);
    if (limit > 0 && !rpc_control(RPC_SVC_CONNMAXREC_SET, &limit))
        return nullptr;
    if (!service.local)
        return svctcp_create(RPC_ANYSOCK, send_size(service), 0);
    unique_fd fd = local_socket();
    SVCXPRT *transport = fd ? svctcp_create(fd.get(), send_size(service), 0) : nullptr;
    if (transport)
        fd.release();
    return transport;
}

int rpc_service_create(const rpc_service_t &service)
{
    pmap_unset(service.program, service.version);
    errno = 0;
    SVCXPRT *transport = create_transport(service);
    if (transport == nullptr) {
        errno = errno ? errno : EIO;
        return 0;
    }
    listener = transport->xp_fd;
    if (!prepare_listener(listener, service.largest_reply))
        return 0;
    rpc_createerr.cf_stat = RPC_SUCCESS;
    if (svc_register(transport, service.program, service.version, service.dispatch, IPPROTO_TCP))
        return 1;
    // libtirpc leaves errno alone: no port mapper, or one that keeps another owner's entry.
    errno = rpc_createerr.cf_stat == RPC_SUCCESS ? EADDRINUSE : ECONNREFUSED;
    return 0;
}

// The words of a descriptor set, for walking and counting its bits.
static constexpr int Word_bits = 8 * sizeof(fd_mask);
static constexpr int Words = FD_SETSIZE / Word_bits;

static unsigned long word_of(const fd_set &set, int i)
{
    return static_cast<unsigned long>(__FDS_BITS(&set)[i]);
}

static int count(const fd_set &set)
{
    int n = 0;
    for (int i = 0; i < Words; i++)
        n += std::popcount(word_of(set, i));
    return n;
}

// Calls `visit` with each descriptor that is in `set` and not in `without`.
template <class Visit> static void for_each(const fd_set &set, const fd_set &without, Visit visit)
{
    for (int i = 0; i < Words; i++)
        for (unsigned long left = word_of(set, i) & ~word_of(without, i); left != 0; left &= left - 1)
            visit(i * Word_bits + std::countr_zero(left));
}

// How many connections, the listening socket included, may be open at once: the descriptors that
// select() and our limit allow, less those open for other purposes and the reserve.
static int connection_limit()
{
    struct rlimit limit = {FD_SETSIZE, FD_SETSIZE};
    getrlimit(RLIMIT_NOFILE, &limit);
    const int allowed = static_cast<int>(std::min<rlim_t>(limit.rlim_cur, FD_SETSIZE));
    int others = 0;
    for (int fd = 0; fd < allowed; fd++)
        others += !FD_ISSET(fd, &svc_fdset) && fcntl(fd, F_GETFD) >= 0;
    return allowed - others - std::min(Reserve, allowed / 4);
}

// Serves one descriptor; connections that come of it are closed in children.
static void serve(int fd)
{
    if (fd != listener) {
        svc_getreq_common(fd);
        return;
    }
    const fd_set before = svc_fdset;
    svc_getreq_common(fd);
    for_each(svc_fdset, before, [](int accepted) { fcntl(accepted, F_SETFD, FD_CLOEXEC); });
}

void rpc_service_run(const rpc_service_t &service)
{
    static const fd_set none = {};
    const int limit = connection_limit();
    bool full = false;
    for (;;) {
        fd_set ready = svc_fdset;
        FD_SET(service.wake_fd, &ready);
        if (full)  // who knocks now gets in when another has gone
            FD_CLR(listener, &ready);
        const int n = select(FD_SETSIZE, &ready, nullptr, nullptr, nullptr);
        if (n < 0 && errno == EBADF)
            return;
        if (n <= 0)
            continue;
        if (FD_ISSET(service.wake_fd, &ready))
            service.wake();
        FD_CLR(service.wake_fd, &ready);
        for_each(ready, none, [&service](int fd) {
            serve(fd);
            if (service.wake_pending())
                service.wake();
        });
        if (full || FD_ISSET(listener, &ready))
            full = count(svc_fdset) > limit;
    }
}

}  // namespace faxtray
