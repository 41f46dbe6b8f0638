// rpc_service: serves one ONC RPC program over TCP. It makes the listening socket and registers the program;
// rpc_loop serves it.
#pragma once

#include <netinet/in.h>
#include <rpc/rpc.h>

namespace faxtray {

struct rpc_service_t {
    rpcprog_t program;
    rpcvers_t version;
    void (*dispatch)(svc_req *, SVCXPRT *) noexcept;
    u_int largest_reply;  // bytes; sockets have room for two of them, so that clients read in their own time
    u_int largest_request;  // bytes, all marks included; a longer one closes its connection
    sockaddr_in address;    // where to listen (see listen_address); port 0: any

    // Other work that the loop does, between requests and never during one.
    int wake_fd;             // readable when there is such work
    bool (*wake_pending)();  // the same question without a system call; asked after every request
    void (*wake)();          // does it
    bool (*ending)();        // true once no more requests are to be served
    bool (*unfinished)();    // true while, at the end, something is worth waiting ten seconds for
};

// Opens a TCP port and registers the program there (see registration_make). Returns 1, or 0 with errno. A
// process can have only one service.
int rpc_service_create(const rpc_service_t &service);

// Serves it until it is ending. Returns 0, or the error number with which waiting failed.
int rpc_service_run(const rpc_service_t &service);

}  // namespace faxtray
