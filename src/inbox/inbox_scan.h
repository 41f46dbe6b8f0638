// inbox_scan: brings the list of an inbox up to date with its directory.
#pragma once

#include <sys/stat.h>

#include "inbox/user_node.h"

namespace faxtray {

// Brings `user`'s list, which must exist, up to date. Returns 1, or -1 with a message on standard error and
// in the trace; the list then holds what it held before, plus the files that were added before the failure.
// Each call drops at most one vanished file.
int update_index(user_node_t *user);

// A node for the file at `path`, called `name` in its inbox, with a new fax id; size and mtime are those of
// `st`. Null with a message if the file cannot be read, or begins like a fax file but has no sound header.
// For the fax system's other programs; none here calls it, because scans read files relative to the open
// directory.
file_node_t *create_file_node(const char *path, const char *name, const struct stat &st);

}  // namespace faxtray
