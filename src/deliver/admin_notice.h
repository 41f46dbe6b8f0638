// admin_notice: what happens to an entry of the exception log once it has been written. The site's callback
// command
// (-L) gets it, and the administrator a notice by mail, as the registry's record "admin" asks:
// admin_notify_level says for which entries, admin_exception_volume how many a day. A volume below 1 is no
// limit.
//
// Both are done before elog_writef returns. Failures on the way are logged too, but not notified.
#pragma once

namespace faxtray {

// Registers itself as the exception log's notifier; call once at start-up.
void admin_notice_init();

}  // namespace faxtray
