// inbox_index: the faxes of an inbox as clients see and remove them.
//
// A fax enters the list once its file has been still for Update_slop seconds and leaves it when
// the file does. Nothing is persisted but the time of the last scan, the mtime of .inbox_index.
#pragma once

#include "inbox/fax_index.h"
#include "inbox/user_node.h"
#include "protocol/records.h"

namespace faxtray {

// Makes the list when there is none and brings it up to date. 1, or 0 with a message on standard error.
int load_inbox(user_node_t *user);

// A slice of the refreshed index, in a static record valid until the next call; null with `error`
// filled (its message in a static buffer).
//   check_value  of the index as last seen; 0: answer in any case
//   faxid        where the slice begins (how 1) or ends (how 0); 0: it begins at the oldest fax
//   count        how many at most; 0, negative or above 100: 100
file_list_t *get_index(user_node_t *user, u_int check_value, int faxid, int how, int count, err_t *error);

int commit_index(user_node_t *user);           // removes all faxes up to the commit mark; always 1
u_int get_fax_count(const user_node_t *user);  // as last scanned; 0 for a null or unloaded one

}  // namespace faxtray
