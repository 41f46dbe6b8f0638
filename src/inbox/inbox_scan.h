// inbox_scan: brings the list of an inbox in step with its directory.
#pragma once

#include <sys/stat.h>

#include "inbox/user_node.h"

namespace faxtray {

// Brings `user`'s list, which must exist, up to date. Returns 1, or -1 with a message on standard error
// and in the trace; the list then holds what it held before, plus the files already added.
// At most one vanished file is dropped a call.
int update_index(user_node_t *user);

// A node for the file at `path`, called `name` in its inbox, with a new fax id; null with a message when
// the file cannot be read, or begins as a fax file and has no sound header. `st` gives size and mtime.
file_node_t *create_file_node(const char *path, const char *name, const struct stat &st);

}  // namespace faxtray
