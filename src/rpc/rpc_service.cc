// The listening socket is the only one that has options: the connections it accepts inherit them.
#include "rpc/rpc_service.h"

#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>

#include "rpc/keep_alive.h"
#include "rpc/registration.h"
#include "rpc/rpc_loop.h"
#include "util/owned.h"

namespace faxtray {

static unique_fd listener;

static bool set_option(int fd, int level, int option, int value)
{
    return setsockopt(fd, level, option, &value, sizeof value) == 0;
}

// A listening socket whose connections have room for two replies, send them at once, and notice after two
// minutes that the peer has vanished.
static unique_fd make_listener(const rpc_service_t &service)
{
    unique_fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP));
    const int room = 2 * static_cast<int>(service.largest_reply);
    if (!fd ||
        // As root, beyond net.core.wmem_max; otherwise as much as that allows.
        !(set_option(fd.get(), SOL_SOCKET, SO_SNDBUFFORCE, room) ||
          set_option(fd.get(), SOL_SOCKET, SO_SNDBUF, room)) ||
        !set_keep_alive(fd.get()) || !set_option(fd.get(), IPPROTO_TCP, TCP_NODELAY, 1) ||
        // Only with a port that the site has chosen: a restart must get it while old connections linger.
        (service.address.sin_port != 0 && !set_option(fd.get(), SOL_SOCKET, SO_REUSEADDR, 1)) ||
        bind(fd.get(), reinterpret_cast<const sockaddr *>(&service.address), sizeof service.address) != 0 ||
        listen(fd.get(), SOMAXCONN) != 0)
        return {};
    return fd;
}

int rpc_service_create(const rpc_service_t &service)
{
    listener = make_listener(service);
    sockaddr_in address;
    socklen_t length = sizeof address;
    if (!listener || getsockname(listener.get(), reinterpret_cast<sockaddr *>(&address), &length) != 0)
        return 0;
    return registration_make(service.program, service.version, ntohs(address.sin_port));
}

int rpc_service_run(const rpc_service_t &service)
{
    return rpc_loop_run(service, listener.get());
}

}  // namespace faxtray
