// lists_check: all that can be said of the two lists together.
#pragma once

#include "check/seen_lists.h"

namespace faxtray {

// With `on_disk` also whether their directories can be used.
void check_lists(const seen_users_t &users, const seen_modems_t &modems, bool on_disk, problems_t &problems);

}  // namespace faxtray
