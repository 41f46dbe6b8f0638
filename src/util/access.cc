// What the effective user may do with a file, decided from its permission bits alone, so that the
// answer costs no further system call and can be tested.
#include "util/access.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "util/trace.h"

namespace faxtray {

static bool in_group(gid_t group)
{
    if (group == getegid())
        return true;
    int count = getgroups(0, nullptr);
    if (count <= 0)
        return false;
    std::unique_ptr<gid_t[]> groups(new (std::nothrow) gid_t[static_cast<size_t>(count)]);
    if (!groups)
        return false;
    count = getgroups(count, groups.get());
    for (int i = 0; i < count; i++)
        if (groups[static_cast<size_t>(i)] == group)
            return true;
    return false;
}

int check_access_stat(const struct stat &st, mode_t type, const char *perms)
{
    if ((st.st_mode & S_IFMT) != type)
        return 0;
    uid_t user = geteuid();
    if (user == 0)
        return 1;

    // The three bits that apply, at the place of the others' bits.
    mode_t granted = st.st_mode;
    if (st.st_uid == user)
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

}  // namespace faxtray
