// watch_command: tells of each new fax of an inbox, once.
#pragma once

#include "client/client_session.h"

namespace faxtray {

// Runs until it is ended, or standard output is. A server that goes away is waited for.
exit_status watch_command(session &s);

}  // namespace faxtray
