// inbox_root: the directory below which users' inboxes are created.
#pragma once

#include "config/av_list.h"

namespace faxtray {

// Creates the directory named by "delivery_dir_root" of the "default" entry in `metausers`, unless it exists
// (its parent must). Returns 1, or 0 with a message on standard error.
int mk_inbox_root(const av_list_t *metausers);

}  // namespace faxtray
