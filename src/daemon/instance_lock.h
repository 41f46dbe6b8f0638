// instance_lock: one faxtrayd for a host and a work directory, by a lock on <work>/trayd_lock.HOST.
//
// The port mapper is not enough: a daemon that is busy with a long delivery does not answer, and of two that
// start at the same time neither answers yet. The name of the host is part of the file's, since hosts may
// share the directory. The lock is the process's own (fcntl(2)): children do not inherit it, and it goes with
// the process, however that ends. The file stays.
#pragma once

namespace faxtray {

// Whether another process holds the lock. Opens the file, for good: closing it would give up the lock.
// Start-up goes on without a file that cannot be opened or locked, with a message on standard error.
bool instance_lock_is_held(const char *host);

// Takes the lock and writes our process id into the file. False if another process was quicker. To be called
// after the fork into the background, in the process that serves.
bool instance_lock_take();

}  // namespace faxtray
