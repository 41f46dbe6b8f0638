// access: what the effective user may do with a file or directory, by its permission bits alone. Access
// control lists and read-only file systems are not asked about, so opening the file may still fail.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <vector>

namespace faxtray {

// The effective user and its groups as they were when this was made, so that many files can be judged without
// asking the system again.
class effective_user {
public:
    effective_user() noexcept;  // without memory for the groups, a member of the effective group only

    // Whether a file of status `st` is of `type` (S_IFREG or S_IFDIR) and grants every letter of `perms`
    // ("r", "w", "x"; others are traced and ignored). The superuser may do anything with a file of the type.
    bool may(const struct stat &st, mode_t type, const char *perms) const noexcept;

private:
    bool in_group(gid_t group) const noexcept;

    uid_t user_;
    gid_t group_;
    std::vector<gid_t> groups_;
};

// The calls below return 1 when the current effective user may, else 0: also when `path` does not exist or is
// of another type. Links are followed.

// The decision of effective_user::may() for the file at `path`. The superuser gets a trace line when the
// file's status cannot be read for another reason than that it does not exist.
int check_access(const char *path, mode_t type, const char *perms);
int check_access_stat(const struct stat &st, mode_t type, const char *perms);  // for a status at hand

int check_file_access(const char *path, const char *perms);  // a regular file
int check_dir_access(const char *path, const char *perms);   // a directory
int is_readable_file(const char *path);                      // a regular file, "r"
int is_executable_file(const char *path);                    // a regular file, "rx"

// Why the effective user cannot run the program: an errno, or 0. Asks the system, unlike the calls above.
int execution_error(const char *path);

}  // namespace faxtray
