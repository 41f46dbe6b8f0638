// session: the processes of one session (setsid), so that what a child has started can be ended after the
// child itself has died.
#pragma once

#include <sys/types.h>

namespace faxtray {

// Kills every process of the session, and returns when they have ended, or after a tenth of a second: then
// some are blocked in the kernel. Processes that have made a session of their own, as services do, live on.
// Call it before anything could have been given the session's number anew: at once after its leader was
// awaited.
void kill_session(pid_t session);

}  // namespace faxtray
