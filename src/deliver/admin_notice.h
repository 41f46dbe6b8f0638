// admin_notice: what happens to an entry of the exception log once it is written: the site's callback
// command gets it, and the administrator a notice, as far as the record "admin" asks for that.
#pragma once

namespace faxtray {

void admin_notice_init();  // hangs into the exception log

}  // namespace faxtray
