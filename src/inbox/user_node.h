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

    // A user's name, password and check value of its entry; an incoming inbox's handle, no password, and
    // check value of its MODEMS.info entry.
    pw_req_t *identity;

    char *description;   // incoming: the name that forwarders use ("incoming_gui"), or null; user: null
    time_t last_get;     // when a chunk was last read from it, 0 for never; only dump_user_info looks at it
    time_t scan_mark;    // largest mtime ever added to the index
    time_t commit_mark;  // largest mtime shown to a client since the last commit, 0 for none
    fax_index_t *index;  // null until first loaded
    user_node_t *next;
};

inline const char *inbox_name(const user_node_t *node)
{
    return node->identity->user;
}

// Inboxes ordered by name, no two names equal. The list owns its nodes, but has no destructor:
// free_user_list() or dump_list() frees them.
struct inbox_list_t : named_chain_t<user_node_t, inbox_name> {};

void free_user_node(user_node_t *node);  // one node with all it owns, not its successors; null is allowed
using user_node_ptr = std::unique_ptr<user_node_t, deleter<free_user_node>>;

// A node with copies of `inbox` and `description` (which may be null) that owns `identity`; not loaded, all
// marks 0. Null with errno without memory.
user_node_ptr new_user_node(const char *inbox, pw_req_ptr identity, const char *description);

// Adds the node to the list, which then owns it. Returns 1, or 0 with a message for a duplicate name or
// without memory.
int add_user_node(inbox_list_t *list, user_node_t *node);
// Unlinks the node of `node`'s name, which the caller then owns; null if the list has none.
user_node_t *delete_user_node(inbox_list_t *list, user_node_t *node);
user_node_t *get_user_node(const inbox_list_t *list, const char *name);  // the list's own, or null

// To be called before a node is freed: removes the marker .inbox_index of an inbox that was never loaded,
// since nobody has looked at it. Returns 1, or 0 with a message.
int dump_user_node(user_node_t *node);

void free_user_list(inbox_list_t *list);  // frees every node; the list is then empty
void dump_list(inbox_list_t *list);       // dump_user_node() for every node, then the same

// Prints the nodes on standard error. For the fax system's other programs; none here calls it.
void dump_user_info(const inbox_list_t *list);

// "directory/name" (for a null name the directory alone), normalised by mkpath, in a static buffer that the
// next call overwrites. Null with a trace line if it is too long or no valid path.
const char *mk_path(const char *directory, const char *name);

}  // namespace faxtray
