// None of these can fail.
#include "daemon/status_procedures.h"

#include "daemon/replies.h"
#include "util/trace.h"
#include "util/version_id.h"

namespace faxtray {

in_res_t *trayd_rev_1_svc(void *, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("trayd_rev_1_svc request.\n");
    // Kept: -1 and -1; a client would take other numbers for another protocol.
    // The record's text is not const because clients free theirs; encoding only reads it.
    reply(result, RES_REV)->rev = {-1, -1, const_cast<char *>(SCCS_ID)};
    return &result;
}

in_res_t *get_status_1_svc(pw_req_t *, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("get_status_1_svc request.\n");
    return reply(result, RES_STATUS);  // Kept: its list is absent, as clients expect.
}

in_res_t *trayd_shutdown_1_svc(pw_req_t *, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("trayd_shutdown_1_svc request.\n");
    // Kept: it only replies; otherwise any client could end the service for all others.
    return reply(result, RES_SHUTDOWN);
}

}  // namespace faxtray
