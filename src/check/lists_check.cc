// The order does not matter: problems are sorted in the end.
#include "check/lists_check.h"

#include "check/inbox_checks.h"
#include "check/modem_checks.h"
#include "check/settings_check.h"
#include "check/user_checks.h"

namespace faxtray {

void check_lists(const seen_users_t &users, const seen_modems_t &modems, bool on_disk, problems_t &problems)
{
    check_user_settings(users, problems);
    check_modem_settings(modems, problems);
    check_users(users, problems);
    check_forwarders(users, modems, problems);
    check_inboxes(users, modems, on_disk, problems);
    check_modems(modems, users.path, on_disk, problems);
}

}  // namespace faxtray
