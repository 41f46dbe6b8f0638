// fax_index: the list of an inbox's faxes in memory.
//
// Always: the chain is sorted by mtime, equal times in the order they came; every node has a fax id of its
// own; the four strings of a node are never null.
#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "protocol/records.h"
#include "util/owned.h"

namespace faxtray {

// Nodes

// A node with copies of the strings, null ones as empty; null with `error` (which may be null) filled.
file_node_t *new_file_node(const char *name, const char *sender_fax, const char *subaddress,
                           const char *pwd_frame, int pages, int is_fax, faxid_t faxid, u_int size,
                           time_t mtime, err_t *error);

// For a record that build_node will only read, and whose strings are not its own.
inline char *borrowed(const char *text)
{
    return const_cast<char *>(text);
}

// A copy of `source` with strings of its own, null ones as empty; silent. Null with errno; `*refused` is then
// the string that could not be copied, or null when it was the node itself.
file_node_t *build_node(const file_info_t &source, const char **refused);

file_node_t *copy_file_node(const file_node_t *node, err_t *error);
void free_file_node(file_node_t *node);  // with every node behind it
faxid_t newid();                         // unique in this run

using file_node_ptr = std::unique_ptr<file_node_t, deleter<free_file_node>>;

// The wire's list

file_list_t *copy_file_list(const file_list_t *list);  // null with a message
void free_file_list(file_list_t *list);                // what copy_file_list gave; null is allowed

// The index

// The wire's list and, beside the chain, what makes finding, adding and removing cheap.
struct fax_index_t : file_list_t {
    fax_index_t() : file_list_t{} {}
    fax_index_t(const fax_index_t &) = delete;
    fax_index_t &operator=(const fax_index_t &) = delete;

    std::unordered_map<faxid_t, file_node_t *> before;  // fax id -> node before it, null for the head
    file_node_t *tail = nullptr;
    u_int name_sum = 0;  // the check value of the chain as it is; check_value is that of the last scan
};

fax_index_t *create_new_list();       // empty; null without memory. free_index() it
void free_index(fax_index_t *index);  // with its chain; null is allowed

// Adds by mtime, after equals; 1, the node then being the list's, or 0 without memory.
int add_file_node(fax_index_t *index, file_node_t *node);

// Adds many, sorted by mtime, at the cost of one walk at most. What was added has left `nodes`; without
// memory for the others, std::bad_alloc.
void add_file_nodes(fax_index_t *index, std::vector<file_node_ptr> &nodes);

file_node_t *delete_file_node(fax_index_t *index, faxid_t faxid);     // unlinked, the caller's; or null
file_node_t *get_file_node(const fax_index_t *index, faxid_t faxid);  // the list's own; or null

// The check value anew: the sum of all names' bytes, each taken as signed. Scans keep it up by themselves.
void update_index_check_value(fax_index_t *index);

}  // namespace faxtray
