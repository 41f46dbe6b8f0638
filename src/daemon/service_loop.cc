// The inbox program as a service: its dispatcher, its sizes and its signals.
#include "daemon/service_loop.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "daemon/dispatcher.h"
#include "daemon/signals.h"
#include "protocol/records.h"
#include "rpc/rpc_service.h"

namespace faxtray {

static rpc_service_t service()
{
    return {IN_PROG, IN_VERS,      in_prog_1,       MAX_READ_SIZE, 0,
            false,   signals_fd(), signals_pending, signals_handle};
}

int create_service()
{
    return rpc_service_create(service());
}

void cv_svc_run()
{
    rpc_service_run(service());
    fprintf(stderr, "cv_svc_run: select: %s\n", strerror(EBADF));
}

}  // namespace faxtray
