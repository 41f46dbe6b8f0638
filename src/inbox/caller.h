// caller: is the caller the user it claims to be?
#pragma once

#include "inbox/inbox_lists.h"
#include "protocol/records.h"

namespace faxtray {

// Returns 1 if the caller may act as the user it names, else 0 with `error` filled (codes 8, 11, 18, 19; its
// message is in a static buffer that the next refusal overwrites). A null `request` is an absent identity.
int valid_user_by_name(const pw_req_t *request, err_t *error);

// The same against a given identity: `stored` holds the password (null or "" accepts any) and the check value
// of the user's current entry.
int valid_user(const pw_req_t *request, const pw_req_t *stored, err_t *error);

}  // namespace faxtray
