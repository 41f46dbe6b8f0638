// A lease is dropped by closing the file, so it needs no other end.
#include "disk/lease.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>

#include <cerrno>
#include <csignal>
#include <cstdint>

namespace faxtray {

// Network file systems refuse a lease, as if there were a writer, when the server has not handed the file
// over to this host; and a lease says nothing of writers on other hosts.
static bool is_remote(int fd)
{
    struct statfs fs;
    if (fstatfs(fd, &fs) != 0)
        return false;
    const auto type = static_cast<uint32_t>(fs.f_type);
    return type == NFS_SUPER_MAGIC || type == SMB_SUPER_MAGIC || type == CIFS_SUPER_MAGIC ||
           type == SMB2_SUPER_MAGIC;
}

int take_read_lease(int fd)
{
    if (is_remote(fd))
        return EINVAL;
    signal(SIGIO, SIG_IGN);  // first: by default it would end the process
    if (fcntl(fd, F_SETLEASE, F_RDLCK) == 0)
        return 0;
    return errno == EAGAIN ? EBUSY : errno;
}

}  // namespace faxtray
