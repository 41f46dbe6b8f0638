// rpc_service: serves one ONC RPC program over TCP, one request at a time. It owns the listening socket and
// the connections behind libtirpc's interface, and decides which of them is read next.
#pragma once

#include <rpc/rpc.h>

namespace faxtray {

struct rpc_service_t {
    rpcprog_t program;
    rpcvers_t version;
    void (*dispatch)(svc_req *, SVCXPRT *) noexcept;
    u_int largest_reply;    // bytes; send buffers are sized for it, so that a slow reader blocks nobody
    u_int largest_request;  // bytes; a longer one closes its connection. 0: no limit, but then a client that
                            // stops halfway through a request blocks all others until libtirpc times out
    bool local;             // accept connections from this host only

    // Other work that the loop does, between requests and never during one.
    int wake_fd;             // readable when there is such work
    bool (*wake_pending)();  // the same question without a system call; asked after every request
    void (*wake)();          // does it
};

// Opens a TCP port and registers the program there (see registration_make). Returns 1, or 0 with errno. A
// process can have only one service.
int rpc_service_create(const rpc_service_t &service);

// Serves it. Returns only when select() fails with EBADF.
void rpc_service_run(const rpc_service_t &service);

}  // namespace faxtray
