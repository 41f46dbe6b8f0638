// Two questions: who has registered the program, which the port mapper knows, and who listens on its port
// now, which the kernel knows.
#include "rpc/trusted_client.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <new>

#include "rpc/port_mapper.h"
#include "util/owned.h"

namespace faxtray {

// Looks for listeners on `port` in one of the kernel's lists of sockets, whose lines begin
// "N: ADDRESS:PORT ADDRESS:PORT STATE QUEUES TIMER RETRANSMITS UID" (proc(5)). Counts those of root and of
// our own user; of any other user, the id goes to *other.
static void find_listeners(const char *list, u_short port, int *trusted, long *other)
{
    const file_ptr lines(fopen(list, "re"));
    char line[512];
    while (lines && fgets(line, sizeof line, lines.get())) {
        u_int local = 0, state = 0;
        uid_t user = 0;
        if (sscanf(line, "%*d: %*[0-9A-F]:%x %*[0-9A-F]:%*x %x %*s %*s %*s %u", &local, &state, &user) != 3 ||
            local != port || state != TCP_LISTEN)
            continue;
        if (user == 0 || user == geteuid())
            ++*trusted;
        else
            *other = user;
    }
}

// Who listens on the port, in words, unless it is root or our own user. Listeners on different addresses may
// share a port, so all of them must be trusted.
static std::string strange_listener(u_short port)
{
    int trusted = 0;
    long other = -1;
    for (const char *list : {"/proc/net/tcp", "/proc/net/tcp6"})
        find_listeners(list, port, &trusted, &other);
    if (other >= 0)
        return "user " + std::to_string(other) + " listens on its port";
    return trusted > 0 ? "" : "an unknown user listens on its port";
}

// trusted_clnt_create until `deadline`; may throw std::bad_alloc.
static CLIENT *create_by(rpcprog_t program, rpcvers_t version, deadline_t deadline, std::string *stranger)
{
    mapping_t mapping;
    if (!port_mapper_find(program, version, deadline, &mapping))
        return nullptr;
    rpc_createerr.cf_stat = RPC_PROGNOTREGISTERED;
    if (mapping.port == 0)
        return nullptr;
    if (!is_trusted(mapping)) {
        *stranger = isdigit(static_cast<unsigned char>(mapping.owner[0]))
                        ? "registered by user " + std::string(mapping.owner)
                        : "registered by an unknown user";
        return nullptr;
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(mapping.port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    client_ptr client(timed_clnt_at(address, program, version, deadline));
    // Asked once connected: nobody but the listener seen now can have accepted the connection.
    if (client && !(*stranger = strange_listener(mapping.port)).empty()) {
        rpc_createerr.cf_stat = RPC_PROGNOTREGISTERED;
        return nullptr;
    }
    return client.release();
}

CLIENT *trusted_clnt_create(rpcprog_t program, rpcvers_t version, const timeval &limit, std::string *stranger)
{
    stranger->clear();
    try {
        return create_by(program, version, deadline_after(limit), stranger);
    } catch (const std::bad_alloc &) {
        rpc_createerr.cf_stat = RPC_SYSTEMERROR;
        rpc_createerr.cf_error.re_errno = ENOMEM;
        return nullptr;
    }
}

}  // namespace faxtray
