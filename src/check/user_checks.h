// user_checks: the users, groups and forwarders of a list, each with the defaults that it inherits.
#pragma once

#include "check/seen_lists.h"

namespace faxtray {

// Names, passwords, ways of delivery, notices and groups.
void check_users(const seen_users_t &list, problems_t &problems);

// Who gets which of the incoming inboxes of `modems`, also of those whose directories are not usable just
// now.
void check_forwarders(const seen_users_t &list, const seen_modems_t &modems, problems_t &problems);

// How a user's faxes are delivered, or -1 if no delivery can succeed: a value handle of delivery_method.
int delivery_of(const av_list_t *user);

bool is_group(const av_list_t *user);

}  // namespace faxtray
