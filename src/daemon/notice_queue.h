// notice_queue: what the daemon itself writes to the exception log reaches the site's command (-L) and the
// administrator by way of child processes, so that no command, mail agent or registry that hangs keeps
// clients waiting.
//
// Each entry has a child of its own, and eight of them may run side by side. Of the entries beyond, one more
// entry tells the number once a child has ended. What a delivery writes is handled by its own process, not
// here.
#pragma once

#include <sys/types.h>

namespace faxtray {

// Registers itself as the exception log's notifier. Entries are kept until the loop calls notices_begin().
void notice_queue_init();

void notices_begin();  // starts a child for each entry that waits for one

bool notices_are_left();  // waiting or running
void notices_kill();  // all children, with the commands that they have started; the log says how many entries
                      // nobody has been told of

// A child has ended: true if it was one of these.
bool notice_has_ended(pid_t child, int status);

}  // namespace faxtray
