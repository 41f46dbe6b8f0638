#include "disk/flush.h"

#include <fcntl.h>
#include <sys/param.h>

#include <cerrno>

#include "util/paths.h"

namespace faxtray {

bool close_flushed(unique_fd fd)
{
    if (fsync(fd.get()) == 0)
        return close(fd.release()) == 0;
    const int error = errno;  // the first cause, whatever closing says
    fd.reset();
    errno = error;
    return false;
}

bool sync_directory_of(const char *path)
{
    char dir[MAXPATHLEN];
    snprintf(dir, sizeof dir, "%s", path);
    unique_fd fd(open(dirname(dir), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd)
        return errno == EACCES;  // a drop box: files may be put into it, but not listed
    return fsync(fd.get()) == 0 || errno == EINVAL;
}

}  // namespace faxtray
