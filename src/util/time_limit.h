// time_limit: ends commands that take too long, whatever this process is doing meanwhile: it may be blocked
// in writing to one of them. Uses SIGALRM, whose handler runs every second while a command runs.
//
// Each command is the leader of a process group. When its time is over the group gets SIGTERM, and five
// seconds later SIGKILL. A process that has left the group lives on, but is not waited for.
#pragma once

#include <sys/types.h>

namespace faxtray {

inline constexpr unsigned default_command_seconds = 900;

// Seconds that a command may take from now on (0, as before the first call: any time), and seconds between
// SIGTERM and SIGKILL. Also sees that SIGALRM arrives, which whoever started us may have blocked.
void set_command_seconds(unsigned seconds, unsigned grace = 5);
unsigned command_seconds();

// Whether one more command may be started: 16 are watched at once.
bool has_room_for_command();

// Begins to watch the group that a command leads. `input` is the descriptor by which we write to it, or -1: a
// write that is blocked when the group has been killed fails then with EAGAIN.
void begin_time_limit(pid_t group, int input);

// To be called once the leader has been awaited. True if its time was over; what is left of the group then
// ends as well, for which this waits.
bool end_time_limit(pid_t group);

// Kills all commands that are running, each with its group. Async-signal-safe.
void kill_commands();

}  // namespace faxtray
