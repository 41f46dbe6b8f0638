// service_loop: the transport of the inbox program. Owns the listening socket and the connections
// behind libtirpc's interface, and decides which of them is read next.
#pragma once

namespace faxtray {

// Registers the inbox program with the port mapper on a new TCP port, in place of what an earlier
// instance left there. 1, or 0 with errno (ECONNREFUSED without a port mapper).
int create_service();

// Serves requests, one at a time, and handles signals in between. Returns only when select() fails
// with EBADF, with a message on standard error.
void cv_svc_run();

}  // namespace faxtray
