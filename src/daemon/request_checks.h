// request_checks: what procedures ask before they do their own work. Each check that fails makes
// `result` the error reply to return.
#pragma once

#include "inbox/user_node.h"
#include "protocol/records.h"

namespace faxtray {

const char *name_of(const pw_req_t *pw);  // the caller's name, null when there is none

bool lists_are_current(in_res_t &result);                    // code 21
bool caller_is_valid(const pw_req_t *pw, in_res_t &result);  // codes 8, 11, 18, 19

// May the caller act on that incoming inbox? Null asks only whether it is a forwarder at all.
// Codes 5, 12, 19.
bool caller_is_forwarder(const pw_req_t *pw, const char *inbox, in_res_t &result);

// The node of that name, or null.
user_node_t *find_node(const inbox_list_t &list, const char *name);

}  // namespace faxtray
