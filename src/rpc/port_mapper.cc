// Calls of rpcbind's own program over a client of timed_client; the records are libtirpc's.
#include "rpc/port_mapper.h"

#include <netinet/in.h>
#include <rpc/rpcb_prot.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace faxtray {

static CLIENT *connect_locally(deadline_t deadline)
{
    static const sockaddr_un address = {AF_UNIX, _PATH_RPCBINDSOCK};
    return timed_clnt_connect(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0),
                              reinterpret_cast<const sockaddr *>(&address), sizeof address, RPCBPROG,
                              RPCBVERS, deadline);
}

static CLIENT *connect_over_tcp(deadline_t deadline)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(PMAPPORT);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    // Only a reserved port shows that root is asking; without one the call still serves, in nobody's name.
    if (fd >= 0 && geteuid() == 0)
        bindresvport(fd, nullptr);
    return timed_clnt_connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address, RPCBPROG,
                              RPCBVERS, deadline);
}

// Null with rpc_createerr set. A socket file that nobody listens on counts as none.
static client_ptr connect_to_mapper(deadline_t deadline, bool *locally = nullptr)
{
    client_ptr client(connect_locally(deadline));
    if (locally)
        *locally = client != nullptr;
    const int error = rpc_createerr.cf_error.re_errno;
    if (!client && (error == ENOENT || error == ECONNREFUSED))
        client.reset(connect_over_tcp(deadline));
    if (!client && rpc_createerr.cf_stat != RPC_TIMEDOUT)
        rpc_createerr.cf_stat = RPC_PMAPFAILURE;
    return client;
}

// One call. False with rpc_createerr set.
template <class Argument, class Result>
static bool ask(CLIENT *mapper, rpcproc_t procedure, bool_t (*xdr_argument)(XDR *, Argument *),
                Argument *argument, bool_t (*xdr_result)(XDR *, Result *), Result *result,
                deadline_t deadline)
{
    const clnt_stat status = clnt_call(mapper, procedure, reinterpret_cast<xdrproc_t>(xdr_argument), argument,
                                       reinterpret_cast<xdrproc_t>(xdr_result), result, time_left(deadline));
    if (status == RPC_SUCCESS)
        return true;
    clnt_geterr(mapper, &rpc_createerr.cf_error);
    rpc_createerr.cf_stat = status == RPC_TIMEDOUT ? RPC_TIMEDOUT : RPC_PMAPFAILURE;
    return false;
}

static bool_t xdr_no_argument(XDR *, char *)
{
    return TRUE;
}

// The port in a universal address, "h1.h2.h3.h4.p1.p2" (RFC 5665 section 5.2.3.3); 0 if it is none.
static u_short port_of(const char *address)
{
    u_int high = 0, low = 0;
    if (sscanf(address, "%*u.%*u.%*u.%*u.%u.%u", &high, &low) != 2 || high > 255 || low > 255)
        return 0;
    return static_cast<u_short>(high << 8 | low);
}

bool port_mapper_find(rpcprog_t program, rpcvers_t version, deadline_t deadline, mapping_t *found)
{
    *found = {};
    bool locally = false;
    const client_ptr mapper = connect_to_mapper(deadline, &locally);
    // The whole list: a question for one program would be answered without its owner, and with the port of
    // another version if this one is not registered.
    rpcblist_ptr list = nullptr;
    const bool asked = mapper && ask<char>(mapper.get(), RPCBPROC_DUMP, xdr_no_argument, nullptr,
                                           xdr_rpcblist_ptr, &list, deadline);
    for (const rpcblist *entry = list; asked && entry; entry = entry->rpcb_next) {
        const rpcb &map = entry->rpcb_map;
        if (map.r_prog != program || map.r_vers != version || strcmp(map.r_netid, "tcp") != 0)
            continue;
        found->port = port_of(map.r_addr);
        snprintf(found->owner, sizeof found->owner, "%s", locally ? map.r_owner : "");
    }
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_rpcblist_ptr), &list);
    return asked;
}

bool port_mapper_replace(rpcprog_t program, rpcvers_t version, u_short port, deadline_t deadline)
{
    const client_ptr mapper = connect_to_mapper(deadline);
    if (!mapper)
        return false;
    char address[sizeof "0.0.0.0.255.255"], tcp[] = "tcp", none[] = "";
    snprintf(address, sizeof address, "0.0.0.0.%u.%u", (port >> 8) & 0xFFu, port & 0xFFu);
    rpcb every_transport = {program, version, none, none, none};
    rpcb ours = {program, version, tcp, address, none};  // the port mapper fills in the owner by itself
    bool_t done = FALSE;
    if (!ask(mapper.get(), RPCBPROC_UNSET, xdr_rpcb, &every_transport, xdr_bool, &done, deadline) ||
        !ask(mapper.get(), RPCBPROC_SET, xdr_rpcb, &ours, xdr_bool, &done, deadline))
        return false;
    if (!done)
        rpc_createerr.cf_stat = RPC_AUTHERROR;
    return done;
}

bool port_mapper_remove(rpcprog_t program, rpcvers_t version, deadline_t deadline)
{
    const client_ptr mapper = connect_to_mapper(deadline);
    char none[] = "";
    rpcb every_transport = {program, version, none, none, none};
    bool_t done = FALSE;
    return mapper && ask(mapper.get(), RPCBPROC_UNSET, xdr_rpcb, &every_transport, xdr_bool, &done, deadline);
}

bool is_trusted(const mapping_t &mapping)
{
    if (mapping.owner[0] == '\0')
        return mapping.port < IPPORT_RESERVED;
    return strcmp(mapping.owner, "superuser") == 0 || std::to_string(geteuid()) == mapping.owner;
}

}  // namespace faxtray
