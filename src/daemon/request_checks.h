// request_checks: what every procedure does before its own work. A step that fails returns false and fills
// `result` with the error reply to send.
#pragma once

#include "inbox/user_node.h"
#include "protocol/records.h"

namespace faxtray {

const char *name_of(const pw_req_t *pw);  // the caller's name, or null when the request carries none

// Reloads USER_LIST.info and MODEMS.info if one of them has changed. Code 21.
bool refresh_lists(in_res_t &result);

// Whether FAXTRAY_STRICT is set in the environment, to anything but "" and "0": every request that names a
// user needs the password of a user who has one.
bool strict_checks();

// Checks that the caller is the user it claims to be, and with strict checks that this user has a password.
// Codes 8, 11, 18, 19.
bool check_caller(const pw_req_t *pw, in_res_t &result);

// Checks that the caller may act on the incoming inbox with that handle; with a null handle, only that it is
// a forwarder at all. Codes 5, 12, 19.
bool check_forwarder(const pw_req_t *pw, const char *inbox, in_res_t &result);

// The node of that name, or null. A null name, which a request may carry, matches none.
user_node_t *find_node(const inbox_list_t &list, const char *name);

}  // namespace faxtray
