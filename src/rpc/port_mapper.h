// port_mapper: this host's entries at its port mapper, rpcbind (RFC 1833, version 3 of its protocol).
//
// It is asked over its local socket, where it knows the user at the other end by itself. Without that socket
// it is asked over TCP, where entries are made in nobody's name, or in root's for a caller on a reserved
// port. Unlike libtirpc's pmap_set and pmap_unset, every call ends at its deadline.
#pragma once

#include <rpc/rpc.h>

#include "rpc/timed_client.h"

namespace faxtray {

// Where a program takes TCP connections, as the port mapper has it.
struct mapping_t {
    u_short port;    // 0: not registered
    char owner[32];  // who registered it: "superuser", a user id in digits, or "unknown"; "" if the port
                     // mapper was asked over TCP
};

// All three return false with rpc_createerr set, as timed_clnt_create does: RPC_TIMEDOUT, or RPC_PMAPFAILURE
// with the reason in re_errno if there is one.

// Looks up exactly this version of the program.
bool port_mapper_find(rpcprog_t program, rpcvers_t version, deadline_t deadline, mapping_t *found);

// Registers the program on that port in place of any entry that there is. RPC_AUTHERROR: refused, since
// another user's entry is in the way.
bool port_mapper_replace(rpcprog_t program, rpcvers_t version, u_short port, deadline_t deadline);

// Removes the program's entry. That there is none, or another user's, is no failure.
bool port_mapper_remove(rpcprog_t program, rpcvers_t version, deadline_t deadline);

// Whether root or the user of this process has registered it. What was asked over TCP must be on a reserved
// port instead, which only root can open.
bool is_trusted(const mapping_t &mapping);

}  // namespace faxtray
