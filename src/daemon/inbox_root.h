// inbox_root: the directory below which users' inboxes are created.
#pragma once

#include "config/av_list.h"

namespace faxtray {

enum : int { ROOT_MISSING = 0, ROOT_EXISTS = 1, ROOT_MADE = 2 };

// Creates the directory named by "delivery_dir_root" of the "default" entry in `metausers`, unless it exists
// (its parent must). Returns ROOT_EXISTS, ROOT_MADE if it was created by this call, or ROOT_MISSING with a
// message on standard error.
int mk_inbox_root(const av_list_t *metausers);

}  // namespace faxtray
