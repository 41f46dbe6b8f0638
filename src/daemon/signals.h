// signals: what the daemon does when it is signalled.
//
// Handlers only take note and wake the service loop through a pipe; printing, exit and clean-up happen
// in signals_handle(), which the loop calls while no request runs. Two exceptions write and _exit():
// a crash, and a second terminating signal while the first waits for a long request.
#pragma once

namespace faxtray {

// Installs the handlers; while `debug` is set, SIGBUS and SIGSEGV keep their default action. 1, or 0
// with errno.
int signals_init(int debug);

int signals_fd();        // readable when signals_handle() has something to do
bool signals_pending();  // the same, without a system call
void signals_handle();   // reaps ended children; ends the process after a terminating signal

void sa_child(int sig);   // handler of SIGCHLD
void exit_proc(int sig);  // handler of terminating and fatal signals

}  // namespace faxtray
