// time_limit: ends commands that take too long, whatever this process is doing meanwhile: it may be blocked
// in writing to one of them. Uses SIGALRM while a command runs.
//
// Each command is the leader of a process group. When its time is over the group gets SIGTERM, and five
// seconds later SIGKILL.
#pragma once

#include <sys/types.h>

namespace faxtray {

// Seconds that a command may take from now on; 0: any time.
void set_command_seconds(unsigned seconds);

// Around a command's life: begins to watch the group that it leads, and ends it. The second, called once the
// leader has been awaited, returns true if its time was over; what is left of the group is then killed.
void begin_time_limit(pid_t group);
bool end_time_limit(pid_t group);

// Kills all commands that are running, each with its group. Async-signal-safe.
void kill_commands();

}  // namespace faxtray
