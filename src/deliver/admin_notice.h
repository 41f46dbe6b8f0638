// admin_notice: what happens to an entry of the exception log once it is written: the site's callback
// command (-L) gets it, and the administrator a notice by mail, as the registry's record "admin" asks:
// admin_notify_level says of which entries, admin_exception_volume how many a day. Below 1 there is no
// limit.
//
// Both run before elog_writef returns. What goes wrong on the way is logged too, but not notified.
#pragma once

namespace faxtray {

void admin_notice_init();  // hangs into the exception log; once, at start

}  // namespace faxtray
