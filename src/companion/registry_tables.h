// registry_tables: the records that faxregd answers with, from USER_LIST.info and MODEMS.info. Each file is
// read again, at the next question, when it has changed.
#pragma once

#include "config/av_list.h"

namespace faxtray {

// Where the lists are; null: searched for. Lent for the process's life.
void set_registry_files(const char *user_list, const char *modem_list);

// What a question came to.
enum class table_answer { FOUND, UNKNOWN, NOT_LOADED };

// The entry of a user over the defaults, names matched loosely; "admin" and "default" give those records.
// `*entry` is its own, valid until the next question, and stands in a chain that is none of the caller's.
// Passwords are left out. NOT_LOADED when the file never could be read, with messages on standard error;
// while a changed file cannot be read, answers come from what it held before.
table_answer find_user(const char *name, const av_list_t **entry);

// The same of users with a "forwarder" attribute alone.
table_answer find_forwarder(const char *name, const av_list_t **entry);

// The entry of a modem over the defaults, names matched exactly; "default" gives the defaults.
table_answer find_modem(const char *name, const av_list_t **entry);

}  // namespace faxtray
