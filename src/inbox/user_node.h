// user_node: one inbox (a user's, or a modem's incoming directory) and the ordered list of them.
#pragma once

#include <ctime>
#include <memory>

#include "inbox/named_chain.h"
#include "protocol/pw_req.h"
#include "protocol/records.h"
#include "util/owned.h"

namespace faxtray {

struct fax_index_t;  // fax_index.h

struct user_node_t {
    char *inbox;  // absolute path of the inbox directory
    pw_req_t
        *identity;      // user: name, password, check value of the entry; incoming: handle, none, check value
    char *description;  // incoming: the name forwarders use ("incoming_gui"), or null; user: null
    time_t last_get;    // when a chunk was last read from it, 0 for never
    time_t scan_mark;   // largest mtime ever added to the index
    time_t commit_mark;  // largest mtime shown to a client since the last commit
    fax_index_t *index;  // null until first loaded
    user_node_t *next;
};

inline const char *inbox_name(const user_node_t *node)
{
    return node->identity->user;
}

// Inboxes ordered by name, no two names equal. The list owns its nodes, but only the functions below
// free them.
struct inbox_list_t : named_chain_t<user_node_t, inbox_name> {};

void free_user_node(user_node_t *node);  // the node alone, with all it owns; null is allowed
using user_node_ptr = std::unique_ptr<user_node_t, deleter<free_user_node>>;

// A node with copies of `inbox` and `description` (which may be null) that owns `identity`; not loaded, all
// marks 0. Null with errno when memory is short.
user_node_ptr new_user_node(const char *inbox, pw_req_ptr identity, const char *description);

// Takes the node over when it returns 1; 0 for a duplicate, with a message, or without memory.
int add_user_node(inbox_list_t *list, user_node_t *node);
// Unlinks the node of `node`'s name, which is then the caller's; null when the list has none.
user_node_t *delete_user_node(inbox_list_t *list, user_node_t *node);
user_node_t *get_user_node(const inbox_list_t *list, const char *name);  // the list's own, or null

// Settles what is on the disk before a node goes: the marker of an inbox that was never loaded is
// removed. 1, or 0 with a message.
int dump_user_node(user_node_t *node);

void free_user_list(inbox_list_t *list);        // frees every node as it stands; the list is then empty
void dump_list(inbox_list_t *list);             // dumps and frees every node; the list is then empty
void dump_user_info(const inbox_list_t *list);  // the nodes in words, on standard error

// "directory/name" (or the directory alone, for a null name) normalised, in a static buffer that the
// next call overwrites; null with a trace line when it is too long or no valid path.
const char *mk_path(const char *directory, const char *name);

}  // namespace faxtray
