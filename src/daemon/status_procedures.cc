// Revision, status and shutdown.
#include "daemon/status_procedures.h"

#include "daemon/replies.h"
#include "util/trace.h"
#include "util/version_id.h"

namespace faxtray {

in_res_t *trayd_rev_1_svc(void *, svc_req *) noexcept
{
    static in_res_t result;
    static int major_rev = 0;
    static int minor_rev = 0;
    trprintf("trayd_rev_1_svc request.\n");
    if (major_rev == 0)
        major_rev = minor_rev = -1;
    // The record's text is not const, since clients free theirs; encoding only reads it.
    reply(result, RES_REV)->rev = {major_rev, minor_rev, const_cast<char *>(SCCS_ID)};
    return &result;
}

in_res_t *get_status_1_svc(pw_req_t *, svc_req *) noexcept
{
    static in_res_t result;
    static av_list_t *const status = nullptr;  // Kept: nothing fills it; clients expect it absent.
    trprintf("get_status_1_svc request.\n");
    reply(result, RES_STATUS)->av = status;
    return &result;
}

in_res_t *trayd_shutdown_1_svc(pw_req_t *, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("trayd_shutdown_1_svc request.\n");
    return reply(result, RES_SHUTDOWN);
}

}  // namespace faxtray
