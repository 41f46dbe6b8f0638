#include "rpc/keep_alive.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace faxtray {

bool set_keep_alive(int fd)
{
    static constexpr struct {
        int level, option, value;
    } options[] = {{SOL_SOCKET, SO_KEEPALIVE, 1},
                   {IPPROTO_TCP, TCP_KEEPIDLE, 60},
                   {IPPROTO_TCP, TCP_KEEPINTVL, 15},
                   {IPPROTO_TCP, TCP_KEEPCNT, 4}};
    for (const auto &[level, option, value] : options)
        if (setsockopt(fd, level, option, &value, sizeof value) != 0)
            return false;
    return true;
}

}  // namespace faxtray
