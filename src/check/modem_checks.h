// modem_checks: the fax lines of MODEMS.info, and the incoming inboxes that they come to.
#pragma once

#include <set>

#include "check/seen_lists.h"

namespace faxtray {

// Names of lines and inboxes, and what their directories are. With `on_disk` also whether the directories are
// there and usable. `with_lists`: the directories that hold the lists.
void check_modems(const seen_modems_t &modems, const std::set<std::string> &with_lists, bool on_disk,
                  problems_t &problems);

}  // namespace faxtray
