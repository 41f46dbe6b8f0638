// timed_client: a libtirpc client over TCP and IPv4 whose time limits hold for a whole step.
//
// Used as any CLIENT: clnt_call, clnt_freeres, clnt_geterr, clnt_sperror, clnt_destroy; clnt_control knows
// CLGET_FD. clnt_create's own clients wait for minutes to connect, begin their time-out anew with every piece
// that arrives, so that a peer which drips or never stops holds them for ever, and may raise SIGPIPE.
#pragma once

#include <rpc/rpc.h>

namespace faxtray {

inline constexpr u_int MAX_REPLY = 64 * 1024 * 1024;  // bytes of a reply; a longer one is refused

// Finds `program` by the host's port mapper and connects, all within `limit` (but the host's name is looked
// up without one). Null with rpc_createerr set: RPC_UNKNOWNHOST; RPC_TIMEDOUT; RPC_PMAPFAILURE, re_status
// and re_errno telling why; RPC_PROGNOTREGISTERED; RPC_SYSTEMERROR with re_errno. The socket is
// close-on-exec.
//
// A call fails with RPC_TIMEDOUT when the whole reply is not there within its time. After a failure of the
// transport the connection is shut down, and later calls fail at once with RPC_CANTSEND.
CLIENT *timed_clnt_create(const char *host, rpcprog_t program, rpcvers_t version, const timeval &limit);

// True when the program is registered at `host` and its port takes connections; the port mapper's entry
// alone outlives a server.
bool rpc_answers_on(const char *host, rpcprog_t program, rpcvers_t version);

}  // namespace faxtray
