// caller: whether a request comes from whom it says.
#pragma once

#include "inbox/inbox_lists.h"
#include "protocol/records.h"

namespace faxtray {

// 1 when the caller may act as the user it names, else 0 with `error` filled (codes 8, 11, 18, 19; the
// message in a static buffer that the next refusal overwrites). A null `request` is an absent identity.
int valid_user_by_name(const pw_req_t *request, err_t *error);

// The same against an identity already at hand: `stored` holds the password (none or an empty one accepts
// any) and the check value of the user's entry as it is now.
int valid_user(const pw_req_t *request, const pw_req_t *stored, err_t *error);

}  // namespace faxtray
