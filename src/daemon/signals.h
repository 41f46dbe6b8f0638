// signals: how the daemon reacts to signals.
//
// Handlers only set a flag and wake the service loop through a pipe; printing, exiting and clean-up happen in
// signals_handle(), which the loop calls between requests. A crash alone writes a line and leaves by _exit().
#pragma once

#include <sys/types.h>

namespace faxtray {

// Installs the handlers; while `debug` is set, SIGBUS and SIGSEGV keep their default action. 1, or 0 with
// errno.
int signals_init(int debug);

int signals_fd();        // readable when signals_handle() has something to do
bool signals_pending();  // the same question without a system call
void signals_handle();   // reaps ended children, begins notices; announces the end after a terminating signal
bool signals_ending();   // true from then on
bool signals_hurried();  // true once a second one has come

// Wakes the loop, which then calls signals_handle().
void signals_wake();

// fork(2) for a child that goes on with a part of the daemon's work. In the child a terminating signal kills
// the commands that it has started, and ends it; what the daemon ignores is ignored there too. What is
// buffered is written first, or both processes would write it.
pid_t fork_worker();

void sa_child(int sig);   // the handler of SIGCHLD
void exit_proc(int sig);  // the handler of terminating and fatal signals

}  // namespace faxtray
