// trusted_client: a client of a program on this host, if root or our own user runs it.
//
// Any user may register a program that nobody else has registered, or listen on the port of one that has
// ended. Whoever acts on the answers of such a program, as root does on those of the fax system's registry,
// must know whose they are.
#pragma once

#include <string>

#include "rpc/timed_client.h"

namespace faxtray {

// Connects to the program on this host within `limit`, like timed_clnt_create. A program that another user
// has registered, or on whose port another user listens, counts as not registered: null with
// RPC_PROGNOTREGISTERED, and `*stranger` says in a few words whose it is. Otherwise `*stranger` is empty.
CLIENT *trusted_clnt_create(rpcprog_t program, rpcvers_t version, const timeval &limit,
                            std::string *stranger);

}  // namespace faxtray
