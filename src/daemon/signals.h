// signals: how the daemon reacts to signals.
//
// Handlers only set a flag and wake the service loop through a pipe; printing, exiting and clean-up happen in
// signals_handle(), which the loop calls between requests. Two exceptions write a line and _exit(): a crash,
// and a second terminating signal while the first one waits for a long request.
#pragma once

namespace faxtray {

// Installs the handlers; while `debug` is set, SIGBUS and SIGSEGV keep their default action. 1, or 0 with
// errno.
int signals_init(int debug);

int signals_fd();        // readable when signals_handle() has something to do
bool signals_pending();  // the same question without a system call
void signals_handle();   // reaps ended children; exits with 0 after a terminating signal

void sa_child(int sig);   // the handler of SIGCHLD
void exit_proc(int sig);  // the handler of terminating and fatal signals

}  // namespace faxtray
