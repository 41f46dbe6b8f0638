// A lease is dropped by closing the file, so it needs no other end.
#include "disk/lease.h"

#include <fcntl.h>

#include <cerrno>
#include <csignal>

#include "util/file_lock.h"

namespace faxtray {

int take_read_lease(int fd)
{
    // Network file systems refuse a lease, as if there were a writer, when the server has not handed the file
    // over to this host; and a lease says nothing of writers on other hosts.
    if (is_on_network(fd))
        return EINVAL;
    signal(SIGIO, SIG_IGN);  // first: by default it would end the process
    if (fcntl(fd, F_SETLEASE, F_RDLCK) == 0)
        return 0;
    return errno == EAGAIN ? EBUSY : errno;
}

}  // namespace faxtray
