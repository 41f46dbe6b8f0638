// The user list decides. Passwords are hashes made by the client, which is why they are compared as text.
#include "inbox/caller.h"

#include <cstring>

#include "config/av_list.h"
#include "inbox/messages.h"
#include "protocol/pw_req.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

int valid_user_by_name(const pw_req_t *request, err_t *error)
{
    // An empty name is not looked up, because the look-up would write a line to the log for every stranger.
    const char *name = request ? request->user : nullptr;
    const av_list_t *entry = name && *name ? User_list.users.get(name) : nullptr;
    if (!entry)
        return refuse(error, IE_INVALID, 0, "Trayd: Invalid user name: [%s].", shown(name));

    pw_req_ptr stored(
        new_pw(entry->key, av_getv(entry, "password"), nullptr, 0, static_cast<u_int>(entry->check_value)));
    if (!stored)
        return refuse(error, IE_SYSTEM, 0, "Trayd: new_pw failed.");
    return valid_user(request, stored.get(), error);
}

int valid_user(const pw_req_t *request, const pw_req_t *stored, err_t *error)
{
    // The entry has changed since the client read it, so the client may act on settings that no longer hold.
    // 0 means that it has read none.
    if (request->check_value != 0 && request->check_value != stored->check_value) {
        trprintf("Trayd: Stale USER_LIST.info entry (req: %d, != our:%d).",
                 static_cast<int>(request->check_value), static_cast<int>(stored->check_value));
        return refuse(error, IE_STALE, 0, "Trayd: Stale USER_LIST.info entry.");
    }
    if (!stored->password || !*stored->password)
        return 1;
    if (request->password && strcmp(stored->password, request->password) == 0)
        return 1;
    return refuse(error, IE_BAD_PASSWORD, 0, "Trayd: Invalid password.");
}

}  // namespace faxtray
