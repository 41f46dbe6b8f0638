// files: copying, moving and cutting files.
#pragma once

#include <sys/types.h>

namespace faxtray {

// Copies a regular file to `dst`, or into it when it is a directory. A new target gets the source's
// permissions less the umask, an existing one its permissions. Returns 1, or 0 with a trace line, the
// half-made target removed. The source itself, or what is no regular file, is refused as the target.
int copy(const char *src, const char *dst);

// Moves a regular file: rename, or copy to the disk and remove where rename cannot. 1, or 0 with a trace
// line; the source then still exists.
int cv_move(const char *src, const char *dst);

// ftruncate with a trace line on failure; 0 or -1.
int cv_ftruncate(int fd, off_t length);

}  // namespace faxtray
