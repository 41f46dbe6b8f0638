// settings_check: each line of the lists by itself: is its attribute one, and may it have that value?
#pragma once

#include "check/seen_lists.h"

namespace faxtray {

void check_user_settings(const seen_users_t &list, problems_t &problems);
void check_modem_settings(const seen_modems_t &list, problems_t &problems);

// Whether nothing of the attribute's value may be shown: "password", and whatever may be meant to be it.
bool is_secret(const std::string &attribute);

}  // namespace faxtray
