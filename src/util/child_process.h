// child_process: starts and awaits every child of the daemon.
//
// A child gets descriptor 0 (its pipe or /dev/null), 1 and 2 as ours, nothing else, a clean signal mask,
// default dispositions and the descriptor limit the daemon itself was started with.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <cstdio>

namespace faxtray {

// Remembers the descriptor limit that children get, before the daemon lowers its own.
void child_set_limit(const struct rlimit &nofile);

// popen, pclose and system as in POSIX, by way of "/bin/sh -c": standard output and error are flushed
// before the fork, EINTR is waited out, and a command that cannot be executed exits with status 127.
// Streams are close-on-exec; several may be open at once. While one is open, a child that does not read
// what is written to it gives EPIPE and no SIGPIPE.
FILE *child_popen(const char *command, const char *mode);  // "r" or "w"; null with errno
int child_pclose(FILE *stream);                            // the wait status, or -1 with errno
int child_system(const char *command);                     // the wait status, or -1 with errno

// How many children this module has awaited since the last call; lets the reaper tell a signal whose
// child was awaited here from one that nobody explains.
int child_awaited();

// Closes every descriptor from `lowest` on, however high the limit. Async-signal-safe.
void close_descriptors_from(int lowest);

}  // namespace faxtray
