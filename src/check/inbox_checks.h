// inbox_checks: the users' inboxes: which directories they are, and whether whoever runs this can use them.
#pragma once

#include <set>

#include "check/seen_lists.h"

namespace faxtray {

// What the paths come to. With `on_disk` also whether the directories are usable or can be made.
// `with_lists`: the directories that hold the lists.
void check_inboxes(const seen_users_t &list, const seen_modems_t &modems,
                   const std::set<std::string> &with_lists, bool on_disk, problems_t &problems);

// What is wrong with the directory, in a few words that follow its path; "" if it is there and can be read,
// written and searched.
std::string directory_fault(const char *path);

}  // namespace faxtray
