// rpc_connection: one client's connection. Requests are put together from what has arrived, and a reply waits
// until the socket has room: nothing here ever waits for the client. To procedures it looks like any
// transport of libtirpc's (svc_getargs, svc_sendreply, svcerr_*).
#pragma once

#include <netinet/in.h>
#include <rpc/rpc.h>
#include <rpc/svc_mt.h>

#include <cstdint>
#include <string>

#include "rpc/connection_table.h"
#include "rpc/record_assembler.h"
#include "util/owned.h"

namespace faxtray {

struct rpc_service_t;

class rpc_connection {
public:
    // `fd` is a connected socket that does not block; `serial` is never used twice.
    rpc_connection(unique_fd fd, const sockaddr_in &peer, uint64_t serial, const rpc_service_t &service,
                   rpc_time now);
    rpc_connection(const rpc_connection &) = delete;
    rpc_connection &operator=(const rpc_connection &) = delete;

    static rpc_connection &of(SVCXPRT *transport) { return *static_cast<rpc_connection *>(transport->xp_p1); }

    int fd() const { return fd_.get(); }
    uint64_t serial() const { return serial_; }

    // What it waits for: a request to be served, room in the socket for a reply, an answer that a procedure
    // has put off, or else more bytes from the client.
    bool has_request() const { return request_.is_whole() && !wants_room() && !put_off_; }
    bool wants_room() const { return !unsent_.empty(); }
    bool is_put_off() const { return put_off_; }
    bool is_kept() const { return put_off_ && kept_; }

    // Bytes that are free when it has closed.
    size_t memory() const { return sizeof *this + request_.memory() + unsent_.capacity(); }

    // Each returns false when the connection is to be closed.
    bool receive(rpc_time now);
    bool send_more(rpc_time now);
    bool serve(rpc_time now);  // one request

    // The procedure being served will answer later, by answer(). Until then nothing is read; with `keep` not
    // even the end of the connection counts.
    void put_off(bool keep)
    {
        put_off_ = true;
        kept_ = keep;
    }
    bool answer(xdrproc_t xdr, void *result, rpc_time now);  // false as above
    bool serve_again(rpc_time now);                          // the same

    // Whether it has waited too long for the rest of a request, or for a client that does not read.
    bool is_overdue(rpc_time now) const;

private:
    friend struct transport_operations;

    bool dispatch();
    bool reply(rpc_msg *message);
    bool finish_request(rpc_time now);

    const rpc_service_t &service_;
    unique_fd fd_;
    uint64_t serial_;
    sockaddr_in peer_;
    SVCXPRT transport_ = {};
    SVCXPRT_EXT extension_ = {};

    record_assembler request_;
    XDR arguments_ = {};
    uint32_t xid_ = 0;
    bool put_off_ = false, kept_ = false;
    bool broken_ = false;  // nothing more can be sent

    std::string unsent_;  // of the last reply, from sent_ on
    size_t sent_ = 0;
    rpc_time begun_,
        taken_;  // when the request began to arrive; when the client last took bytes of the reply
};

}  // namespace faxtray
