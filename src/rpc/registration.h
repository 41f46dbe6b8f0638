// registration: this process's entry at the port mapper, for the one service that it has.
//
// A port mapper that is restarted without its state forgets every service, and clients then find none. So the
// loop that serves looks at the entry now and then, when it has nothing else to do.
#pragma once

#include <rpc/rpc.h>

namespace faxtray {

// Registers the program on a TCP port, in place of the entry that an earlier instance may have left. Takes at
// most 25 seconds. Returns 1, or 0 with errno: ECONNREFUSED without a port mapper, ETIMEDOUT when it does not
// answer, EACCES when it keeps another user's entry.
int registration_make(rpcprog_t program, rpcvers_t version, u_short port);

// How long the loop may wait before it must call registration_look(); zero when that is due.
timeval registration_due();

// Looks at the entry, and makes it again if it is gone or if a stranger has taken its place; what cannot be
// done is reported once, on standard error, and tried again the next time. A port mapper answers within a
// millisecond; one that does not is given 200, since nobody is served meanwhile.
void registration_look();

// Removes the entry, within 10 seconds, for a service that ends.
void registration_remove();

}  // namespace faxtray
