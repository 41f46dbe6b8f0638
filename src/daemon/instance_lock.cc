// The file is the fax system's own (0600): whoever could read it could lock out the daemon.
#include "daemon/instance_lock.h"

#include <fcntl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "util/settings.h"

namespace faxtray {

static int lock_fd = -1;  // never closed; -1: no lock is to be had

// Calls fcntl() for a write lock on the whole file. Another process's lock is reported by EAGAIN, also by
// F_GETLK; any other failure, such as ENOLCK of a network file system, means that there are no locks here.
static bool lock(int command)
{
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (fcntl(lock_fd, command, &whole) != 0)
        return false;
    if (command != F_GETLK || whole.l_type == F_UNLCK)
        return true;
    errno = EAGAIN;
    return false;
}

// Whether a failure of lock() is another process's lock.
static bool is_others()
{
    return errno == EAGAIN || errno == EACCES;
}

static void warn(const char *path)
{
    fprintf(stderr, "%s: Warning: Can't lock [%s]: %s\n", Program, path, strerror(errno));
}

bool instance_lock_is_held(const char *host)
{
    char path[sizeof dvWork_dir + sizeof utsname::nodename + sizeof "/trayd_lock."];
    snprintf(path, sizeof path, "%s/trayd_lock.%s", dvWork_dir, host);
    lock_fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (lock_fd >= 0 && lock(F_GETLK))
        return false;
    if (lock_fd >= 0 && is_others())
        return true;
    warn(path);
    return false;
}

bool instance_lock_take()
{
    if (lock_fd < 0)
        return true;
    if (!lock(F_SETLK))
        return !is_others();
    // Only for people and service managers; the lock counts, not the number.
    char pid[32];
    const int length = snprintf(pid, sizeof pid, "%ld\n", static_cast<long>(getpid()));
    if (ftruncate(lock_fd, 0) != 0 || pwrite(lock_fd, pid, static_cast<size_t>(length), 0) != length)
        fprintf(stderr, "%s: Warning: Can't write the process id: %s\n", Program, strerror(errno));
    return true;
}

}  // namespace faxtray
