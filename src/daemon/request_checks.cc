// The checks themselves are in inbox/; here their refusals become replies.
#include "daemon/request_checks.h"

#include <cstdlib>
#include <cstring>

#include "daemon/inbox_root.h"
#include "daemon/replies.h"
#include "inbox/caller.h"
#include "inbox/forwarders.h"
#include "inbox/inbox_lists.h"
#include "log/access_log.h"
#include "util/text.h"

namespace faxtray {

const char *name_of(const pw_req_t *pw)
{
    return pw ? pw->user : nullptr;
}

bool refresh_lists(in_res_t &result)
{
    bool has_root;
    if (User_list.complete ? update_lists() : load_first_lists(&has_root))
        return true;
    error_reply(result, IE_STATE, 0, "Trayd: Can't update user info.");
    return false;
}

bool strict_checks()
{
    static const char *const value = getenv("FAXTRAY_STRICT");
    return !is_empty(value) && strcmp(value, "0") != 0;
}

// Whether a user, who must be in the list, has a password.
static bool has_password(const char *name)
{
    return !is_empty(av_getv(User_list.users.get(name), "password"));
}

bool check_caller(const pw_req_t *pw, in_res_t &result)
{
    err_t error = {};
    const bool valid = valid_user_by_name(pw, &error);
    if (valid && (!strict_checks() || has_password(pw->user)))
        return true;
    if (valid)
        error_reply(result, IE_BAD_PASSWORD, 0, "Trayd: Invalid password.");
    else
        error_reply(result, error);
    if (result.err.code == IE_BAD_PASSWORD)
        access_refusal(valid ? "no-password-in-user-list" : nullptr);
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
