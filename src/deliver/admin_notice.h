// admin_notice: what happens to an entry of the exception log once it has been written. The site's callback
// command
// (-L) gets it, and the administrator a notice by mail, as the registry's record "admin" asks:
// admin_notify_level says for which entries, admin_exception_volume how many a day. A volume below 1 is no
// limit.
//
// Failures on the way are logged too, but not notified.
#pragma once

#include "log/exception_log.h"

namespace faxtray {

// Registers itself as the exception log's notifier: from now on this process handles its entries itself, each
// before elog_writef returns. In a child it replaces the notifier that the parent had registered. The notices
// of a process and of all that it forks after its first call are counted together.
void admin_notice_init();

// Handles one entry, for notifiers that pass entries on.
void admin_notice_handle(const elog_entry_t &entry) noexcept;

}  // namespace faxtray
