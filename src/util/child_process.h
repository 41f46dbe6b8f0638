// child_process: runs the commands of the daemon and awaits them, each by its own pid, so that no other
// child's status is taken for a command's.
//
// A command gets descriptor 0 (its pipe or /dev/null), the daemon's own 1 and 2 and no other, an empty signal
// mask, default dispositions, the descriptor limit with which the daemon itself was started, and a process
// group of its own.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <cstdio>

namespace faxtray {

// Sets the descriptor limit that commands get; without this call they inherit the daemon's.
void child_set_limit(const struct rlimit &nofile);

// popen, pclose and system as in POSIX, by way of "/bin/sh -c": standard output and error are flushed before
// the fork, an interrupted wait is resumed, and a command that cannot be executed exits with status 127.
// Streams are close-on-exec; several may be open at once, and 16 commands run: for more there is no process
// (EAGAIN). While one is open, writing to a child that does not
// read fails with EPIPE; no SIGPIPE is raised.
//
// A command that takes longer than set_command_seconds() allows (util/time_limit.h) is ended, with its
// process group and a line on standard error; its status is then -1 with ETIMEDOUT.
FILE *child_popen(const char *command, const char *mode);  // "r" or "w"; null with errno
int child_pclose(FILE *stream);                            // the wait status, or -1 with errno
int child_system(const char *command);                     // the wait status, or -1 with errno

// How many children this module has awaited since the last call. SIGCHLD is raised for them as for others: by
// this number the handler's side knows that it may find no child left to reap.
int child_awaited();

// Awaits a child that was forked without this module, and counts it. waitpid(2) without options.
bool child_await(pid_t pid, int *status);

// Closes every descriptor from `lowest` on, whatever the limit: it may have been lowered after higher ones
// were opened. The one way to do so; async-signal-safe.
void close_descriptors_from(int lowest);

}  // namespace faxtray
