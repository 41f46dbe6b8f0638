// user_node: one inbox (a user's, or a modem's incoming directory) and the ordered list of them.
#pragma once

#include <ctime>
#include <map>
#include <memory>
#include <string>

#include "config/munged_name.h"
#include "protocol/records.h"
#include "util/owned.h"

namespace faxtray {

struct fax_index_t;  // inbox_index.h

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

// Inboxes ordered by name as munged_strcmp orders them, no two names equal, with an index by munged
// name beside the chain.
struct inbox_list_t {
    user_node_t *head = nullptr;
    std::multimap<std::string, user_node_t *, munged_less> by_name;
};

int add_user_node(inbox_list_t *list, user_node_t *node);              // 1, or 0 for a duplicate
user_node_t *delete_user_node(inbox_list_t *list, user_node_t *node);  // unlinked, the caller's; or null
user_node_t *get_user_node(const inbox_list_t *list, const char *name);
void free_user_node(user_node_t *node);
void free_user_list(inbox_list_t *list);  // Kept: the head and the node after it, no others
int dump_user_node(user_node_t *node);    // settles its state before it goes; 1 or 0
void dump_list(inbox_list_t *list);       // dumps and frees every node
void dump_user_info(const inbox_list_t *list);

// "directory/name" (or the directory alone, for a null name) normalised, in a static buffer that the
// next call overwrites; null with a trace line when it is too long or no valid path.
const char *mk_path(const char *directory, const char *name);

using user_node_ptr = std::unique_ptr<user_node_t, deleter<free_user_node>>;

}  // namespace faxtray
