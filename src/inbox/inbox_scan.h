// inbox_scan: brings the list of an inbox up to date with its directory.
#pragma once

#include "inbox/user_node.h"

namespace faxtray {

// Brings `user`'s list, which must exist, up to date. Returns 1, or -1 with a message on standard error and
// in the trace; the list then holds what it held before, plus the files that were added before the failure.
// Each call drops at most one vanished file.
//
// Looks at every file, or, where the watch of the inbox knows what has happened since, at those that have
// changed or were left out for the time being. Both come to the same.
int update_index(user_node_t *user);

}  // namespace faxtray
