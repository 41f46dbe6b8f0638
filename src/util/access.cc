// The decision needs no system call once the user is known: inbox scans take it for every new fax. access(2)
// would also answer for the real user instead of the effective one.
#include "util/access.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "util/trace.h"

namespace faxtray {

effective_user::effective_user() noexcept : user_(geteuid()), group_(getegid())
{
    int count = user_ == 0 ? 0 : getgroups(0, nullptr);  // the superuser's groups decide nothing
    if (count <= 0)
        return;
    try {
        groups_.resize(static_cast<size_t>(count));
    } catch (const std::bad_alloc &) {
        return;
    }
    // Fewer rights are safe, so a failure leaves no group.
    count = getgroups(count, groups_.data());
    groups_.resize(static_cast<size_t>(std::max(count, 0)));
}

bool effective_user::in_group(gid_t group) const noexcept
{
    return group == group_ || std::find(groups_.begin(), groups_.end(), group) != groups_.end();
}

bool effective_user::may(const struct stat &st, mode_t type, const char *perms) const noexcept
{
    if ((st.st_mode & S_IFMT) != type)
        return false;
    if (user_ == 0)
        return true;

    // One class applies and no other is looked at: an owner without a bit does not get it as a member of the
    // group. Its three bits are shifted to the place of the bits for others.
    mode_t granted = st.st_mode;
    if (st.st_uid == user_)
        granted >>= 6;
    else if (in_group(st.st_gid))
        granted >>= 3;

    mode_t wanted = 0;
    for (; *perms; perms++)
        switch (*perms) {
        case 'r':
            wanted |= S_IROTH;
            break;
        case 'w':
            wanted |= S_IWOTH;
            break;
        case 'x':
            wanted |= S_IXOTH;
            break;
        default:
            trprintf("check_access: Invalid permission: [%c]\n", *perms);
        }
    return (granted & wanted) == wanted;
}

int check_access_stat(const struct stat &st, mode_t type, const char *perms)
{
    return effective_user().may(st, type, perms);
}

int check_access(const char *path, mode_t type, const char *perms)
{
    struct stat st;
    if (stat(path, &st) == 0)
        return check_access_stat(st, type, perms);
    if (errno != ENOENT && geteuid() == 0)
        trprintf("check_access: stat(\"%s\"): %s\n", path, strerror(errno));
    return 0;
}

int check_file_access(const char *path, const char *perms)
{
    return check_access(path, S_IFREG, perms);
}

int check_dir_access(const char *path, const char *perms)
{
    return check_access(path, S_IFDIR, perms);
}

int is_readable_file(const char *path)
{
    return check_file_access(path, "r");
}

int is_executable_file(const char *path)
{
    return check_file_access(path, "rx");
}

int execution_error(const char *path)
{
    struct stat st;
    if (stat(path, &st) != 0 || faccessat(AT_FDCWD, path, X_OK, AT_EACCESS) != 0)
        return errno;
    return S_ISREG(st.st_mode) ? 0 : EACCES;
}

}  // namespace faxtray
