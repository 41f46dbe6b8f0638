// files: copying, moving and cutting files.
#pragma once

#include <sys/types.h>

namespace faxtray {

// Copies a regular file; an existing directory as `dst` takes the source's last component. Returns 1,
// or 0 with a trace line, the half-made target removed.
int copy(const char *src, const char *dst);

// Moves a regular file: rename, or copy and remove across file systems. 1, or 0 with a trace line.
int cv_move(const char *src, const char *dst);

// ftruncate with a trace line on failure; 0 or -1.
int cv_ftruncate(int fd, off_t length);

}  // namespace faxtray
