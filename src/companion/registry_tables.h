// registry_tables: the records that faxregd answers with, from USER_LIST.info and MODEMS.info. A file that
// has changed is read again at the next question.
#pragma once

#include "config/av_list.h"

namespace faxtray {

// The paths of the lists; null: find_file looks for them. The strings must outlive all questions.
void set_registry_files(const char *user_list, const char *modem_list);

// The outcome of a question.
enum class table_answer { FOUND, UNKNOWN, NOT_LOADED };

// The entry of a user over the defaults; names are matched loosely, and "admin" and "default" return those
// records. *entry belongs to the table and is valid until the next question; the caller must not follow its
// `next`. Passwords are left out. NOT_LOADED if the file could never be read, with messages on standard
// error; while a changed file cannot be read, answers come from its earlier content.
table_answer find_user(const char *name, const av_list_t **entry);

// The same, but only users with a "forwarder" attribute are found.
table_answer find_forwarder(const char *name, const av_list_t **entry);

// The entry of a modem over the defaults; names are matched exactly, and "default" returns the defaults.
table_answer find_modem(const char *name, const av_list_t **entry);

}  // namespace faxtray
