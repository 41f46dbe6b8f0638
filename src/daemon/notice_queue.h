// notice_queue: what the daemon itself writes to the exception log reaches the site's command (-L) and the
// administrator by way of child processes, so that no command, mail agent or registry that hangs keeps
// clients waiting.
//
// One child at a time handles one entry, in the order in which they were written: so the command gets them in
// order, and each child knows how many notices the day has had. Many entries may wait; of those beyond, one
// entry tells the number. What a delivery writes is handled by its own process, not here.
#pragma once

#include <sys/types.h>

namespace faxtray {

// Registers itself as the exception log's notifier. Entries are kept until the loop calls notices_begin().
void notice_queue_init();

// Starts a child for the entry that has waited longest, unless one is running.
void notices_begin();

bool notices_are_left();  // waiting or running
void notices_kill();  // the child, with the commands that it has started; those waiting are lost, which the
                      // log says

// A child has ended: true if it was one of these.
bool notice_has_ended(pid_t child, int status);

}  // namespace faxtray
