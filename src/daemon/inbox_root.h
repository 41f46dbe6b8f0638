// inbox_root: the directory below which users' inboxes are made.
#pragma once

#include "config/av_list.h"

namespace faxtray {

enum : int { ROOT_MISSING = 0, ROOT_EXISTS = 1, ROOT_MADE = 2 };

// Makes the directory named by "delivery_dir_root" of the "default" entry in `metausers`, unless it
// exists (its parent must). Returns whether it is there, and whether it was made just now;
// ROOT_MISSING with a message on standard error.
int mk_inbox_root(const av_list_t *metausers);

}  // namespace faxtray
