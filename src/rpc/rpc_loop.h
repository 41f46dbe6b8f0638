// rpc_loop: one thread, one epoll instance: it waits for all connections at once and serves one request of
// each in turn, so that nobody waits for more than one request of everybody else.
#pragma once

#include <rpc/rpc.h>

#include <cstdint>
#include <functional>

namespace faxtray {

struct rpc_service_t;

// Serves on `listener`, a listening socket that does not block, until the service is ending; then sends for
// at most a second what has been answered. Returns 0, or the error number with which waiting itself failed.
int rpc_loop_run(const rpc_service_t &service, int listener);

// For procedures, while the loop runs.

// Answers the request being served later: the procedure returns without a reply, and the connection is not
// read until rpc_answer(), or rpc_serve_again(), which serves the same request once more, is given the number
// returned here. With `keep` the connection stays, though its client goes or newcomers need places; without,
// it may be gone, and the two do nothing.
uint64_t rpc_put_off(SVCXPRT *transport, bool keep);
void rpc_answer(uint64_t number, xdrproc_t xdr, void *result);
void rpc_serve_again(uint64_t number);

// Calls `ready` whenever `fd` can be read or has been hung up, between requests, until rpc_unwatch(). False
// with errno.
bool rpc_watch(int fd, std::function<void()> ready);
void rpc_unwatch(int fd);

// In a child of the daemon's: closes the listening socket, all connections and what else the loop has open,
// so that clients and the port see only the daemon. Nothing above may be called any more.
void rpc_leave();

}  // namespace faxtray
