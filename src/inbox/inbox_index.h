// inbox_index: the faxes of an inbox as clients see and remove them.
//
// A fax enters the list once its file has not changed for Update_slop seconds, and leaves it when the file is
// removed. Nothing is saved on disk but the time of the last scan, which is the mtime of .inbox_index.
#pragma once

#include "inbox/fax_index.h"
#include "inbox/user_node.h"
#include "protocol/records.h"

namespace faxtray {

// Brings the list up to date, creating it if there is none. Returns 1, or 0 with a message on standard error.
int load_inbox(user_node_t *user);

// Brings the index up to date and returns a slice of it, in a static record valid until the next call. Null
// with `error` filled on failure; its message is in a static buffer.
//   check_value  of the index as the client last saw it; 0: answer in any case
//   faxid        where the slice begins (how 1) or ends (how 0); 0: it begins at the oldest fax
//   count        how many faxes at most; 0, negative or above 100: 100. Fewer if they exceed max_listing:
//                with how 1 the newest are left out, with how 0 the oldest
file_list_t *get_index(user_node_t *user, u_int check_value, int faxid, int how, int count, err_t *error);

// Removes all faxes up to the commit mark, files and nodes. Always returns 1: what cannot be removed, or is
// another file by now, is reported on standard error and leaves the list until the next scan.
int commit_index(user_node_t *user);

u_int get_fax_count(const user_node_t *user);  // as of the last scan; 0 for null or an inbox not loaded

}  // namespace faxtray
