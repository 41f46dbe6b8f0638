// Both answers come from lists in memory; no fax and no inbox directory is touched.
#include "daemon/forwarder_procedures.h"

#include <cerrno>

#include "config/av_list.h"
#include "daemon/replies.h"
#include "daemon/request_checks.h"
#include "inbox/forwarders.h"
#include "inbox/inbox_lists.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

in_res_t *get_ui_1_svc(client_ui_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("get_ui_1_svc request from [%s].\n", shown(name_of(request->pw)));
    if (!refresh_lists(result) || !check_caller(request->pw, result) ||
        !check_forwarder(request->pw, nullptr, result))
        return &result;
    // A client that has the current list keeps it; 0 asks for the list in any case.
    if (request->check_value != 0 && request->check_value == User_list.check_value) {
        trprintf("get_ui_1_svc: list hasn't changed since last request.\n");
        return error_reply(result, IE_UNCHANGED, 0, "Trayd: List has not changed since last request.");
    }
    reply(result, RES_UI)->ui = {User_list.check_value, User_list.recipients.head};
    return &result;
}

in_res_t *get_df_1_svc(pw_req_t *pw, svc_req *) noexcept
{
    static in_res_t result;
    static av_list_ptr last_entry;  // what the previous result points to
    const char *name = name_of(pw);
    trprintf("get_df_1_svc request from [%s].\n", shown(name));
    last_entry.reset();
    if (!refresh_lists(result) || !check_caller(pw, result))
        return &result;
    const av_list_t *entry = name ? Forwarder.get(name) : nullptr;
    if (!entry)
        return error_reply(result, IE_NOT_DF, 0, "Trayd: User not designated forwarder: [%s].", shown(name));
    // A copy, because the entry in the table is chained to those of other forwarders.
    last_entry.reset(av_copy(entry));
    if (!last_entry)
        return error_reply(result, IE_SYSTEM, errno, "Trayd: Can't copy user info.");
    reply(result, RES_DF)->av = last_entry.get();
    return &result;
}

}  // namespace faxtray
