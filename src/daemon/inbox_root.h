// inbox_root: the directory below which users' inboxes are created, and the first load of the lists, which
// makes it.
#pragma once

#include "config/av_list.h"

namespace faxtray {

// Creates the directory named by "delivery_dir_root" of the "default" entry in `metausers`, unless it exists
// (its parent must). Returns 1, or 0 with a message on standard error.
int mk_inbox_root(const av_list_t *metausers);

// Loads the lists until both have been read once, as update_lists() does, and makes the root between: its
// name is in the user list, and the inboxes are created below it. Returns as update_lists(); `*has_root`
// tells whether there is a root.
int load_first_lists(bool *has_root);

}  // namespace faxtray
