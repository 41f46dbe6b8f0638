// timed_client: a libtirpc client over TCP and IPv4 whose time limits cover a whole operation.
//
// Used like any CLIENT: clnt_call, clnt_freeres, clnt_geterr, clnt_sperror, clnt_destroy; of clnt_control
// only CLGET_FD. The clients that clnt_create makes take minutes to give up connecting, restart their
// time-out with every fragment, so that a peer that trickles data can hold them for ever, and may raise
// SIGPIPE.
#pragma once

#include <rpc/rpc.h>

namespace faxtray {

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

// True when the program is registered at `host` and its port takes connections. The port mapper's entry alone
// proves nothing: it stays after a server has ended.
bool rpc_answers_on(const char *host, rpcprog_t program, rpcvers_t version);

}  // namespace faxtray
