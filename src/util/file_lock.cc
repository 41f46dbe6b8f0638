// Nobody waits in the kernel for a lock: on GlusterFS such a wait was seen not to end although the lock was
// free.
#include "util/file_lock.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>

namespace faxtray {

static constexpr unsigned long fuse_magic = 0x65735546;  // not in the kernel's header

static constexpr useconds_t pause = 2000;  // microseconds between two tries
static constexpr int most_tries = 500;

static bool call(int fd, int command, struct flock &whole)
{
    whole.l_whence = SEEK_SET;
    return fcntl(fd, command, &whole) == 0;
}

bool lock_file(int fd)
{
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    const bool locked = call(fd, F_OFD_SETLK, whole);
    if (!locked && errno == EACCES)
        errno = EAGAIN;
    return locked;
}

void unlock_file(int fd)
{
    struct flock whole = {};
    whole.l_type = F_UNLCK;
    call(fd, F_OFD_SETLK, whole);
}

bool is_locked(int fd)
{
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    return call(fd, F_OFD_GETLK, whole) && whole.l_type != F_UNLCK;
}

file_locked::file_locked(int fd) : fd_(fd)
{
    for (int tries = 0; fd_ >= 0 && !lock_file(fd_); tries++) {
        if (errno != EAGAIN || tries == most_tries)
            fd_ = -1;
        else
            usleep(pause);
    }
}

file_locked::~file_locked()
{
    const int error = errno;
    if (fd_ >= 0)
        unlock_file(fd_);
    errno = error;
}

bool is_on_network(int fd)
{
    // FUSE serves local file systems too: these are only treated with more care than they need.
    static constexpr unsigned long shared[] = {NFS_SUPER_MAGIC,  SMB_SUPER_MAGIC,   CIFS_SUPER_MAGIC,
                                               SMB2_SUPER_MAGIC, AFS_SUPER_MAGIC,   CEPH_SUPER_MAGIC,
                                               V9FS_MAGIC,       OCFS2_SUPER_MAGIC, fuse_magic};
    struct statfs fs;
    return fstatfs(fd, &fs) == 0 && std::find(std::begin(shared), std::end(shared),
                                              static_cast<uint32_t>(fs.f_type)) != std::end(shared);
}

appending::appending(int fd) : fd_(is_on_network(fd) ? fd : -1), locked_(fd_)
{
    // Asks the server where the end is: other hosts may have moved it since the file was opened.
    struct statx end;
    if (fd_ >= 0)
        (void)statx(fd_, "", AT_EMPTY_PATH | AT_STATX_FORCE_SYNC, STATX_SIZE, &end);
}

// A failure is one of the disk, which the next write will meet too.
appending::~appending()
{
    const int error = errno;
    if (fd_ >= 0)
        (void)fdatasync(fd_);
    errno = error;
}

}  // namespace faxtray
