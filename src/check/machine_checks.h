// machine_checks: what the lists need of this machine, and what faxtrayd itself does.
#pragma once

#include "check/seen_lists.h"

namespace faxtray {

// Nothing is waited for longer than a few seconds. `work_directory`: the daemon's.
void check_machine(const seen_users_t &list, const char *work_directory, problems_t &problems);

}  // namespace faxtray
