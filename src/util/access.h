// access: what the effective user may do with a file or directory, by its permission bits.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <vector>

namespace faxtray {

// Who asks: the effective user and its groups as they were when this was made, so that many files can be
// judged without asking the system again.
class effective_user {
public:
    effective_user() noexcept;  // without memory for the groups, a member of the effective one alone

    // Whether a file of status `st` is of `type` (S_IFREG or S_IFDIR) and grants every letter of `perms`
    // ("r", "w", "x"; others are traced and ignored). The superuser passes any file of the type.
    bool may(const struct stat &st, mode_t type, const char *perms) const noexcept;

private:
    bool in_group(gid_t group) const noexcept;

    uid_t user_;
    gid_t group_;
    std::vector<gid_t> groups_;
};

// 1 when `path` exists, is of `type` (S_IFREG or S_IFDIR) and grants every letter of `perms` ("r",
// "w", "x") to the effective user, else 0. The superuser passes any existing file of the type.
int check_access(const char *path, mode_t type, const char *perms);

// The same decision from a status already at hand, for the effective user of now.
int check_access_stat(const struct stat &st, mode_t type, const char *perms);

int check_file_access(const char *path, const char *perms);
int check_dir_access(const char *path, const char *perms);
int is_readable_file(const char *path);
int is_executable_file(const char *path);

}  // namespace faxtray
