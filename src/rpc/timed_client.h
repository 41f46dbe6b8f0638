// timed_client: a libtirpc client over TCP and IPv4 whose time limits cover a whole operation.
//
// Used like any CLIENT: clnt_call, clnt_freeres, clnt_geterr, clnt_sperror, clnt_destroy; of clnt_control
// only CLGET_FD. The clients that clnt_create makes take minutes to give up connecting, restart their
// time-out with every fragment, so that a peer that trickles data can hold them for ever, and may raise
// SIGPIPE.
#pragma once

#include <netinet/in.h>
#include <rpc/rpc.h>

#include <chrono>
#include <memory>

#include "util/owned.h"

namespace faxtray {

using deadline_t = std::chrono::steady_clock::time_point;
deadline_t deadline_after(const timeval &limit);
timeval time_left(deadline_t deadline);  // zero once it has passed

inline constexpr u_int max_reply = 64 * 1024 * 1024;  // bytes; a call whose reply is longer fails

// Asks the host's port mapper for the program's port and connects to it, all within `limit`; only resolving
// the host's name has no limit of its own. The socket is close-on-exec. Null with rpc_createerr set:
//   RPC_UNKNOWNHOST        the name does not resolve to an IPv4 address
//   RPC_TIMEDOUT           `limit` has passed
//   RPC_PMAPFAILURE        no usable port mapper; re_status and re_errno say why
//   RPC_PROGNOTREGISTERED  the port mapper does not know the program
//   RPC_SYSTEMERROR        the program's port does not take connections, or memory is short; see re_errno
//
// A call fails with RPC_TIMEDOUT unless the whole reply arrives within its time. After a failure of the
// transport the connection is shut down, and later calls fail at once with RPC_CANTSEND.
CLIENT *timed_clnt_create(const char *host, rpcprog_t program, rpcvers_t version, const timeval &limit);

// The same where the program's address is known: no port mapper is asked.
CLIENT *timed_clnt_at(const sockaddr_in &address, rpcprog_t program, rpcvers_t version, deadline_t deadline);

// The same over a stream socket of the caller's, which must not block and may be of any family. Takes it
// over, also on failure; a negative one fails with errno.
CLIENT *timed_clnt_connect(int socket, const sockaddr *address, socklen_t size, rpcprog_t program,
                           rpcvers_t version, deadline_t deadline);

const char *rpc_create_reason();  // what rpc_createerr says, in a few words

void timed_destroy(CLIENT *client);  // clnt_destroy as a function
using client_ptr = std::unique_ptr<CLIENT, deleter<timed_destroy>>;

// Whether the server answers a call of procedure 0 in time.
bool rpc_answers(CLIENT *client, const timeval &limit);

// Whether the program is registered at `host` and answers a call of procedure 0, all within `limit`. Neither
// an entry at the port mapper nor an open port proves anything: the entry stays after its server has ended,
// and another program may have been given the port.
bool rpc_answers_on(const char *host, rpcprog_t program, rpcvers_t version, const timeval &limit);

}  // namespace faxtray
