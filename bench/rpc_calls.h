// rpc_calls: the client side of the RPC benchmarks: calls as bytes, and connections on which they follow each
// other. Whatever goes wrong ends the program with a message.
#pragma once

#include <netinet/in.h>
#include <rpc/rpc.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "util/owned.h"

namespace faxtray {

[[noreturn]] void give_up(const char *what);

double now(clockid_t clock);  // seconds
double median(std::vector<double> values);

sockaddr_in local(u_short port);  // that port of the loopback address
u_short daemon_port();            // faxtrayd's, of which the port mapper tells

// A call to the inbox program, record mark and all (RFC 5531 sections 9 and 11). `xdr` null: no argument.
std::string make_call(rpcproc_t procedure, xdrproc_t xdr, void *argument);

inline constexpr size_t null_reply = 24;  // bytes of the reply to NULL, its record mark left out

// A connection to a server.
class caller_t {
public:
    explicit caller_t(u_short port);
    int fd() const { return fd_.get(); }
    void send(const std::string &call);
    // Reads once. The size of the reply, its record marks left out, if that was the last of it, else 0.
    size_t receive();

private:
    size_t take(const char *bytes, size_t n);

    unique_fd fd_;
    char mark_[4] = {};
    size_t mark_bytes_ = 0;  // of the current fragment's mark
    size_t left_ = 0;        // of the current fragment
    bool last_ = false;      // fragment
    size_t reply_ = 0;       // bytes of the reply so far
};

}  // namespace faxtray
