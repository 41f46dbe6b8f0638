// One entry, asked for every half minute, so that a lost one is back within a minute.
#include "rpc/registration.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "rpc/port_mapper.h"
#include "util/settings.h"

namespace faxtray {

static constexpr timeval start = {25, 0}, end = {10, 0}, look = {0, 200'000}, interval = {30, 0};

static rpcprog_t program;
static rpcvers_t version;
static u_short port;
static deadline_t next_look;
static bool complained;  // of the trouble that lasts

// The reason of a failed call to the port mapper.
static int error_of_mapper()
{
    switch (rpc_createerr.cf_stat) {
    case RPC_TIMEDOUT:
        return ETIMEDOUT;
    case RPC_AUTHERROR:
        return EACCES;
    default:
        return rpc_createerr.cf_error.re_errno ? rpc_createerr.cf_error.re_errno : EPROTO;
    }
}

int registration_make(rpcprog_t of, rpcvers_t of_version, u_short at)
{
    program = of;
    version = of_version;
    port = at;
    next_look = deadline_after(interval);
    if (port_mapper_replace(program, version, port, deadline_after(start)))
        return 1;
    errno = error_of_mapper();
    return 0;
}

timeval registration_due()
{
    return time_left(next_look);
}

// Whether the entry is ours, or that of a successor whom root or our user has started.
static bool is_in_place(const mapping_t &mapping)
{
    return mapping.port == port || (mapping.port != 0 && is_trusted(mapping));
}

void registration_look()
{
    next_look = deadline_after(interval);
    const deadline_t deadline = deadline_after(look);
    mapping_t mapping;
    bool good = port_mapper_find(program, version, deadline, &mapping);
    if (good && !is_in_place(mapping)) {
        good = port_mapper_replace(program, version, port, deadline);
        if (good)
            fprintf(stderr, "%s: The port mapper had lost our entry: registered again\n", Program);
    }
    if (!good && !complained)
        fprintf(stderr, "%s: Can't keep the entry at the port mapper: %s\n", Program,
                strerror(error_of_mapper()));
    complained = !good;
}

void registration_remove()
{
    port_mapper_remove(program, version, deadline_after(end));
}

}  // namespace faxtray
