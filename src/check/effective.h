// effective: the settings that a user has in the end, and where each comes from.
#pragma once

#include "check/seen_lists.h"

namespace faxtray {

// Print the settings of the user of that name, of "default", or with "" of all users: as a table, or as a
// JSON array of objects. With `changed` without the built-in ones. Passwords are only said to be set. False
// if there is no such user.
bool show_settings(const seen_users_t &list, const std::string &name, bool changed, bool json);

}  // namespace faxtray
