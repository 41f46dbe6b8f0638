// steady_copy: the content of a file that others edit, read while nobody was writing it.
//
// Half a user list is dangerous: a user whose "password" line is not written yet could log in without one.
#pragma once

#include <sys/stat.h>

#include "util/owned.h"

namespace faxtray {

struct steady_copy_t {
    file_ptr file;            // the content, in memory, positioned at its start; null without one
    struct stat status = {};  // the file's; zeros if it could not be read
};

// Reads the file at `path`. `last` is its status when it was last read, zeros if it never was. Returns 0, or
// an error number: EBUSY if the file is being written (ask again later), EINVAL for a pipe or device that
// might be waited for, EFBIG for more than 256 MiB, or a system call's own. Never waits.
//
// A writer is one who has the file open for writing: a read lease tells, and makes those who come meanwhile
// wait until the file is read. Where no lease can be had (another user's file, or a network file system), it
// is one who changed the same file less than 2 seconds ago. SIGIO is ignored from the first call on, since
// the kernel sends it to the holder of a lease when a writer comes.
int read_steady(const char *path, const struct stat &last, steady_copy_t *copy);

}  // namespace faxtray
