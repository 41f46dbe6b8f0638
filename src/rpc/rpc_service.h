// rpc_service: serves one ONC RPC program over TCP, one request at a time. Owns the listening socket and
// the connections behind libtirpc's interface, and decides which of them is read next.
#pragma once

#include <rpc/rpc.h>

namespace faxtray {

struct rpc_service_t {
    rpcprog_t program;
    rpcvers_t version;
    void (*dispatch)(svc_req *, SVCXPRT *) noexcept;
    u_int largest_reply;    // bytes; room for it in the socket lets a client read in its own time
    u_int largest_request;  // bytes; a longer one ends its connection. 0: no limit, but then a client that
                            // stops amid a request holds up all others until libtirpc gives it up
    bool local;             // whether only this host is let in

    // What the loop is woken for besides requests; runs while none is served.
    int wake_fd;             // readable when there is something to do
    bool (*wake_pending)();  // the same, without a system call
    void (*wake)();
};

// Registers the program with the port mapper on a new TCP port, in place of what an earlier instance left
// there. 1, or 0 with errno (ECONNREFUSED without a port mapper). One service a process.
int rpc_service_create(const rpc_service_t &service);

// Serves it. Returns only when select() fails with EBADF.
void rpc_service_run(const rpc_service_t &service);

}  // namespace faxtray
