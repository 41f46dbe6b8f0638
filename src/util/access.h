// access: what the effective user may do with a file or directory, by its permission bits.
#pragma once

#include <sys/stat.h>

namespace faxtray {

// 1 when `path` exists, is of `type` (S_IFREG or S_IFDIR) and grants every letter of `perms` ("r",
// "w", "x") to the effective user, else 0. The superuser passes any existing file of the type.
int check_access(const char *path, mode_t type, const char *perms);

// The same decision from a status already at hand.
int check_access_stat(const struct stat &st, mode_t type, const char *perms);

int check_file_access(const char *path, const char *perms);
int check_dir_access(const char *path, const char *perms);
int is_readable_file(const char *path);
int is_executable_file(const char *path);

}  // namespace faxtray
