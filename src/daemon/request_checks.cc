// The checks themselves are in inbox/; here their refusals become replies.
#include "daemon/request_checks.h"

#include "daemon/replies.h"
#include "inbox/caller.h"
#include "inbox/forwarders.h"
#include "inbox/inbox_lists.h"

namespace faxtray {

const char *name_of(const pw_req_t *pw)
{
    return pw ? pw->user : nullptr;
}

bool refresh_lists(in_res_t &result)
{
    if (update_lists())
        return true;
    error_reply(result, IE_STATE, 0, "Trayd: Can't update user info.");
    return false;
}

bool check_caller(const pw_req_t *pw, in_res_t &result)
{
    err_t error = {};
    if (valid_user_by_name(pw, &error))
        return true;
    error_reply(result, error);
    return false;
}

bool check_forwarder(const pw_req_t *pw, const char *inbox, in_res_t &result)
{
    err_t error = {};
    if (is_forwarder(&Forwarder, name_of(pw), inbox, &error))
        return true;
    error_reply(result, error);
    return false;
}

user_node_t *find_node(const inbox_list_t &list, const char *name)
{
    return name ? get_user_node(&list, name) : nullptr;
}

}  // namespace faxtray
