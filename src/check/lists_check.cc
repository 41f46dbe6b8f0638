// The order does not matter: problems are sorted in the end.
#include "check/lists_check.h"

#include "check/inbox_checks.h"
#include "check/modem_checks.h"
#include "check/settings_check.h"
#include "check/user_checks.h"
#include "util/paths.h"

namespace faxtray {

// The directory that holds the list.
static void add_directory(std::set<std::string> &directories, const seen_list_t &list)
{
    const c_string path(list.is_read ? mkpath(list.path.c_str()) : nullptr);
    if (path)
        directories.insert(dirname(path.get()));
}

void check_lists(const seen_users_t &users, const seen_modems_t &modems, bool on_disk, problems_t &problems)
{
    check_user_settings(users, problems);
    check_modem_settings(modems, problems);
    check_users(users, problems);
    check_forwarders(users, modems, problems);
    std::set<std::string> with_lists;
    add_directory(with_lists, users);
    add_directory(with_lists, modems);
    check_inboxes(users, modems, with_lists, on_disk, problems);
    check_modems(modems, with_lists, on_disk, problems);
}

}  // namespace faxtray
