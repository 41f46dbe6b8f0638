// Any bytes on a connection, arriving in any pieces: each call that is served gets exactly one whole reply,
// and whatever is refused or cut off is freed.
#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "check.h"
#include "protocol/xdr_records.h"
#include "rpc/record_assembler.h"
#include "rpc/rpc_connection.h"
#include "rpc/rpc_service.h"

namespace faxtray {

// Answers every call with its own argument, one of four kinds by the procedure's number.
inline void echo(svc_req *request, SVCXPRT *transport) noexcept
{
    static const xdrproc_t kinds[] = {reinterpret_cast<xdrproc_t>(xdr_index_req_t),
                                      reinterpret_cast<xdrproc_t>(xdr_client_fax_req_t),
                                      reinterpret_cast<xdrproc_t>(xdr_client_deliver_req_t),
                                      reinterpret_cast<xdrproc_t>(xdr_client_ui_req_t)};
    const xdrproc_t kind = kinds[request->rq_proc % std::size(kinds)];
    alignas(8) char argument[256] = {};
    if (!svc_getargs(transport, kind, argument))
        svcerr_decode(transport);
    else if (!svc_sendreply(transport, kind, argument))
        svcerr_systemerr(transport);
    svc_freeargs(transport, kind, argument);
}

// Reads whole replies from `fd` until none is left; returns their number.
inline int count_replies(int fd, record_assembler &replies)
{
    int n = 0;
    char bytes[4096];
    for (ssize_t got; (got = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT)) > 0;) {
        check(replies.take(bytes, static_cast<size_t>(got)));
        for (; replies.is_whole(); n++) {
            check(replies.length() >= 12 && memcmp(replies.record() + 4, "\0\0\0\1", 4) == 0);  // REPLY
            check(replies.next());
        }
    }
    return n;
}

inline void fuzz_rpc_stream(const uint8_t *bytes, size_t n)
{
    rpc_service_t service = {};
    service.program = 7;
    service.version = 1;
    service.dispatch = echo;
    service.largest_request = 64 * 1024;

    int ends[2];
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0);
    const unique_fd client(ends[1]);
    rpc_connection connection(unique_fd(ends[0]), {}, 1, service, rpc_time{});
    record_assembler replies(1 << 20);
    bool open = true;
    while (open && n > 0) {
        // The first byte of each piece is its length.
        const size_t piece = std::min<size_t>(1 + bytes[0], n - 1);
        check(send(client.get(), bytes + 1, piece, 0) == static_cast<ssize_t>(piece));
        bytes += 1 + piece;
        n -= 1 + piece;
        open = piece == 0 || connection.receive(rpc_time{});
        while (open && connection.has_request()) {
            const bool served = connection.serve(rpc_time{});
            int answered = count_replies(client.get(), replies);
            while (connection.wants_room() && connection.send_more(rpc_time{}))
                answered += count_replies(client.get(), replies);
            check(answered == 1 || (!served && answered == 0));
            open = served;
        }
    }
    check(!replies.has_begun());  // no part of a reply
}

}  // namespace faxtray
