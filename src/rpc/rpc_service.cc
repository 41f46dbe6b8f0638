// A select() loop of our own in place of svc_run(): it also watches a wake-up descriptor, and it stops
// accepting connections before descriptors run out. Reading, decoding and replying are libtirpc's.
#include "rpc/rpc_service.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <rpc/rpc.h>
#include <rpc/rpc_com.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <bit>
#include <cerrno>

#include "rpc/registration.h"
#include "util/owned.h"

namespace faxtray {

// How long one write waits for a client that does not read. libtirpc tries up to four times before it closes
// the connection, so all other clients are blocked for less than three seconds.
static constexpr struct timeval send_timeout = {0, 700000};
// Descriptors that connections may not use, so that faxes can be opened and children started at any load.
static constexpr int reserve = 64;

static int listener = -1;  // the listening socket

// libtirpc's buffer of each connection: just over half of the largest reply, so that it goes out in two
// equal pieces. Measured with 256 KiB: a smaller buffer takes more writes, a larger one (libtirpc allows
// 256 KiB) is evicted from the processor's cache as connections are added, since each has its own.
static u_int send_size(const rpc_service_t &service)
{
    return service.largest_reply / 2 + 1024;
}

// Options set on the listening socket are inherited by the connections it accepts. Their send buffers hold
// two replies, so that a client which does not read blocks nobody.
static int prepare_listener(int fd, u_int largest_reply)
{
    static constexpr int on = 1;
    const int room = 2 * static_cast<int>(largest_reply);
    if (fcntl(fd, F_SETFD, FD_CLOEXEC) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &send_timeout, sizeof send_timeout) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on) != 0)
        return 0;
    // As root, beyond net.core.wmem_max; otherwise as much as that allows.
    return setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room) == 0 ||
           setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &room, sizeof room) == 0;
}

// A listening socket on the loopback address, which no other host can reach. svctcp_create would bind its own
// to every address.
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
    // With a limit, libtirpc reads without blocking and serves a request once it is complete. Without one, it
    // waits for the rest of a request, and every other client with it.
    int limit = static_cast<int>(service.largest_request);
    if (limit > 0 && !rpc_control(RPC_SVC_CONNMAXREC_SET, &limit))
        return nullptr;
    if (!service.local)
        return svctcp_create(RPC_ANYSOCK, send_size(service), 0);
    unique_fd fd = local_socket();  // the transport's own, once there is one
    SVCXPRT *transport = fd ? svctcp_create(fd.get(), send_size(service), 0) : nullptr;
    if (transport)
        fd.release();
    return transport;
}

int rpc_service_create(const rpc_service_t &service)
{
    errno = 0;
    SVCXPRT *transport = create_transport(service);
    if (!transport) {
        errno = errno ? errno : EIO;  // libtirpc does not always set it
        return 0;
    }
    listener = transport->xp_fd;
    if (!prepare_listener(listener, service.largest_reply))
        return 0;
    // Protocol 0: the dispatcher is made known to libtirpc, and nothing to the port mapper.
    if (!svc_register(transport, service.program, service.version, service.dispatch, 0)) {
        errno = ENOMEM;
        return 0;
    }
    return registration_make(service.program, service.version, static_cast<u_short>(transport->xp_port));
}

// Descriptor sets are counted and walked a word at a time: a loop over all 1,024 numbers would cost more than
// a small request.
static constexpr int word_bits = 8 * sizeof(fd_mask);
static constexpr int word_count = FD_SETSIZE / word_bits;

static unsigned long word_of(const fd_set &set, int i)
{
    return static_cast<unsigned long>(__FDS_BITS(&set)[i]);
}

static int count(const fd_set &set)
{
    int n = 0;
    for (int i = 0; i < word_count; i++)
        n += std::popcount(word_of(set, i));
    return n;
}

// Calls `visit` with each descriptor that is in `set` and not in `without`, lowest first.
template <class Visit> static void for_each(const fd_set &set, const fd_set &without, Visit visit)
{
    for (int i = 0; i < word_count; i++)
        for (unsigned long left = word_of(set, i) & ~word_of(without, i); left != 0; left &= left - 1)
            visit(i * word_bits + std::countr_zero(left));
}

// How many connections, the listening socket included, may be open at once: the descriptors that
// select() and our limit allow, minus those open for other purposes, minus the reserve.
static int connection_limit()
{
    struct rlimit limit = {FD_SETSIZE, FD_SETSIZE};
    getrlimit(RLIMIT_NOFILE, &limit);
    const int allowed = static_cast<int>(std::min<rlim_t>(limit.rlim_cur, FD_SETSIZE));
    int others = 0;
    for (int fd = 0; fd < allowed; fd++)
        others += !FD_ISSET(fd, &svc_fdset) && fcntl(fd, F_GETFD) >= 0;
    return allowed - others - std::min(reserve, allowed / 4);
}

// Serves one descriptor: a request of a connection, or a new connection. Connections are made close-on-exec,
// which libtirpc does not do, so that no child holds one open.
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
    bool full = false;  // no descriptor left for another connection
    for (;;) {
        fd_set ready = svc_fdset;
        FD_SET(service.wake_fd, &ready);
        if (full)  // at the limit, new clients wait in the listen queue until a connection closes
            FD_CLR(listener, &ready);
        timeval idle = registration_due();
        const int n = select(FD_SETSIZE, &ready, nullptr, nullptr, &idle);
        if (n < 0 && errno == EBADF)
            return;
        if (n == 0)  // no request waits
            registration_look();
        if (n <= 0)  // EINTR: the handler has written to wake_fd
            continue;
        if (FD_ISSET(service.wake_fd, &ready))
            service.wake();
        FD_CLR(service.wake_fd, &ready);
        // A busy loop may have hundreds of requests ready; a signal waits for one of them, not for all.
        for_each(ready, none, [&service](int fd) {
            serve(fd);
            if (service.wake_pending())
                service.wake();
        });
        // The set grows only by accepting, and must be counted again while we wait for it to shrink.
        if (full || FD_ISSET(listener, &ready))
            full = count(svc_fdset) > limit;
    }
}

}  // namespace faxtray
