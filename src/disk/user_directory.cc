#include "disk/user_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "util/owned.h"

namespace faxtray {

std::string user_directory(const char *variable, const char *below_home)
{
    const char *named = getenv(variable), *home = getenv("HOME");
    std::string path;
    if (named && *named == '/')
        path = named;
    else if (home && *home == '/')
        path = std::string(home) + "/" + below_home;
    while (path.ends_with('/'))
        path.pop_back();
    return path;
}

// A directory of ours; none if it is somebody else's. Made if it is missing.
static unique_fd own_directory(const std::string &path, int flags = 0)
{
    flags |= O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    unique_fd fd(open(path.c_str(), flags));
    if (!fd && errno == ENOENT && path.rfind('/') > 0 && own_directory(path.substr(0, path.rfind('/'))) &&
        (mkdir(path.c_str(), 0700) == 0 || errno == EEXIST))
        fd.reset(open(path.c_str(), flags));
    struct stat status;
    return fd && fstat(fd.get(), &status) == 0 && status.st_uid == geteuid() ? std::move(fd) : unique_fd();
}

// Users may have the directory above behind a link; the last step is no link, since what is found there is
// made private.
std::string private_directory(const char *variable, const char *below_home)
{
    const std::string base = user_directory(variable, below_home), path = base + "/faxtray";
    if (base.empty() || !own_directory(base))
        return "";
    const unique_fd fd = own_directory(path, O_NOFOLLOW);
    return fd && fchmod(fd.get(), 0700) == 0 && access(path.c_str(), W_OK) == 0 ? path : "";
}

}  // namespace faxtray
