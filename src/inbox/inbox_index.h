// inbox_index: the list of faxes in one inbox directory, kept in step with the disk.
//
// A fax enters the list once its file has been still for Update_slop seconds and leaves it when
// the file does. Nothing is persisted but the time of the last scan, the mtime of .inbox_index.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <unordered_map>

#include "inbox/user_node.h"
#include "protocol/records.h"
#include "util/owned.h"

namespace faxtray {

// The wire's list and, beside the chain, what makes finding, adding and removing cheap. The chain is
// sorted by mtime, equal times in the order they came.
struct fax_index_t : file_list_t {
    fax_index_t() : file_list_t{} {}
    fax_index_t(const fax_index_t &) = delete;
    fax_index_t &operator=(const fax_index_t &) = delete;

    std::unordered_map<faxid_t, file_node_t *> before;  // fax id -> node before it, null for the head
    file_node_t *tail = nullptr;
    u_int name_sum = 0;  // what the check value becomes with the next scan
};

fax_index_t *create_new_list();       // empty; null without memory. free_index() it
void free_index(fax_index_t *index);  // with its chain; null is allowed

// Makes the list when there is none and brings it up to date. 1, or 0 with a message on standard error.
int load_inbox(user_node_t *user);

// Brings `user`'s list, which must exist, up to date. Returns 1, or -1 with a message on standard error
// and in the trace; the list then holds what it held before, plus the files already added.
// At most one vanished file is dropped a call.
int update_index(user_node_t *user);

// A node for the file at `path`, called `name` in its inbox, with a new fax id; null with a message when
// the file cannot be read, or begins as a fax file and has no sound header. `st` gives size and mtime.
file_node_t *create_file_node(const char *path, const char *name, const struct stat &st);

// A node with copies of the strings, null ones as empty; null with `error` (which may be null) filled.
file_node_t *new_file_node(const char *name, const char *sender_fax, const char *subaddress,
                           const char *pwd_frame, int pages, int is_fax, faxid_t faxid, u_int size,
                           time_t mtime, err_t *error);
file_node_t *copy_file_node(const file_node_t *node, err_t *error);
int add_file_node(fax_index_t *index, file_node_t *node);             // by mtime, after equals; takes it over
file_node_t *delete_file_node(fax_index_t *index, faxid_t faxid);     // unlinked, the caller's; or null
file_node_t *get_file_node(const fax_index_t *index, faxid_t faxid);  // the list's own; or null
void free_file_node(file_node_t *node);                               // with every node behind it
void free_file_list(file_list_t *list);                               // of copy_file_list; null is allowed
file_list_t *copy_file_list(const file_list_t *list);                 // null with a message
void update_index_check_value(
    fax_index_t *index);  // sums all names' bytes, signed; scans do so by themselves

// A slice of the refreshed index, in a static record valid until the next call; null with `error`
// filled (its message in a static buffer).
//   check_value  of the index as last seen; 0: answer in any case
//   faxid        where the slice begins (how 1) or ends (how 0); 0: it begins at the oldest fax
//   count        how many at most; 0, negative or above 100: 100
file_list_t *get_index(user_node_t *user, u_int check_value, int faxid, int how, int count, err_t *error);

int commit_index(user_node_t *user);           // removes all faxes up to the commit mark; always 1
u_int get_fax_count(const user_node_t *user);  // as last scanned
faxid_t newid();                               // unique in this run

using file_node_ptr = std::unique_ptr<file_node_t, deleter<free_file_node>>;

}  // namespace faxtray
