// flush: waiting until what was written is on the disk, so that no crash of the machine takes it back. A
// file's bytes and its name are flushed separately: a new or renamed file needs both.
#pragma once

#include "util/owned.h"

namespace faxtray {

// Waits until the bytes written to the file of `fd` are on the disk, and closes it. False with errno when
// some may be lost.
bool close_flushed(unique_fd fd);

// Waits until the entry `path` of its directory is on the disk. False with errno. Directories that we may not
// read, and those of file systems that cannot flush one, count as flushed: nothing more can be asked for.
bool sync_directory_of(const char *path);

}  // namespace faxtray
