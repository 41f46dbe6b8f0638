// The select() loop over libtirpc's connections, with a signal pipe in the set and a limit on how many
// connections are let in.
#include "daemon/service_loop.h"

#include <fcntl.h>
#include <rpc/pmap_clnt.h>
#include <rpc/rpc.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "daemon/dispatcher.h"
#include "daemon/signals.h"
#include "protocol/records.h"

namespace faxtray {

// Just over half of the largest read's reply, which so goes out in two even pieces. Measured: less
// takes more writes, more (libtirpc allows 256 KiB) falls out of the processor's cache with every
// further connection, since each has a buffer of its own.
static constexpr u_int Send_size = MAX_READ_SIZE / 2 + 1024;
// Room for a whole reply in the socket, so that a client which does not read holds up nobody.
static constexpr int Socket_buffer = 2 * MAX_READ_SIZE;
// How long one write waits for a client that does not read. libtirpc writes up to four times before it
// gives the connection up, so all others wait for under three seconds.
static constexpr struct timeval Send_timeout = {0, 700000};
// Descriptors kept free of connections, for files and children.
static constexpr int Reserve = 64;

static int listener = -1;

// Options set on the listening socket are inherited by the connections it accepts.
static int prepare_listener(int fd)
{
    static constexpr int on = 1;
    if (fcntl(fd, F_SETFD, FD_CLOEXEC) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &Send_timeout, sizeof Send_timeout) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on) != 0)
        return 0;
    return setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &Socket_buffer, sizeof Socket_buffer) == 0 ||
           setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &Socket_buffer, sizeof Socket_buffer) == 0;
}

int create_service()
{
    pmap_unset(IN_PROG, IN_VERS);
    errno = 0;
    SVCXPRT *transport = svctcp_create(RPC_ANYSOCK, Send_size, 0);
    if (transport == nullptr) {
        errno = errno ? errno : EIO;
        return 0;
    }
    listener = transport->xp_fd;
    if (!prepare_listener(listener))
        return 0;
    rpc_createerr.cf_stat = RPC_SUCCESS;
    if (svc_register(transport, IN_PROG, IN_VERS, in_prog_1, IPPROTO_TCP))
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

void cv_svc_run()
{
    static const fd_set none = {};
    const int limit = connection_limit();
    bool full = false;
    for (;;) {
        fd_set ready = svc_fdset;
        FD_SET(signals_fd(), &ready);
        if (full)  // who knocks now gets in when another has gone
            FD_CLR(listener, &ready);
        const int n = select(FD_SETSIZE, &ready, nullptr, nullptr, nullptr);
        if (n < 0 && errno == EBADF)
            break;
        if (n <= 0)
            continue;
        if (FD_ISSET(signals_fd(), &ready))
            signals_handle();
        FD_CLR(signals_fd(), &ready);
        for_each(ready, none, [](int fd) {
            serve(fd);
            if (signals_pending())
                signals_handle();
        });
        if (full || FD_ISSET(listener, &ready))
            full = count(svc_fdset) > limit;
    }
    fprintf(stderr, "cv_svc_run: select: %s\n", strerror(EBADF));
}

}  // namespace faxtray
