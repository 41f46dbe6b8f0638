// fax_index: the list of an inbox's faxes in memory.
//
// Always: the chain is sorted by mtime, equal times in order of arrival; every node has a fax id of its own;
// the four strings of a node are never null.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "inbox/inbox_watch.h"
#include "protocol/records.h"
#include "util/owned.h"

namespace faxtray {

// Nodes

// A node with copies of the strings, null ones as empty. Without memory null, with `error` filled unless it
// is null.
file_node_t *new_file_node(const char *name, const char *sender_fax, const char *subaddress,
                           const char *pwd_frame, int pages, int is_fax, faxid_t faxid, u_int size,
                           time_t mtime, err_t *error);

// For the strings of a record that build_node only reads: its fields are not const.
inline char *borrowed(const char *text)
{
    return const_cast<char *>(text);
}

// A copy of `source` with strings of its own, null ones as empty, of longer ones the first
// longest_listed_text bytes; prints nothing. Null with errno on failure; `*refused` is then the string that
// could not be copied, or null if the node itself could not be allocated.
file_node_t *build_node(const file_info_t &source, const char **refused);

file_node_t *copy_file_node(const file_node_t *node, err_t *error);
void free_file_node(file_node_t *node);  // with every node after it

using file_node_ptr = std::unique_ptr<file_node_t, deleter<free_file_node>>;

// The wire's list

// For the fax system's other programs; none here calls these. The copy is null, with a message on standard
// error, without memory or for a null list.
file_list_t *copy_file_list(const file_list_t *list);
void free_file_list(file_list_t *list);  // a copy, with its chain; null is allowed

// The index

// Which file was listed, so that another one of its name is not taken for it. The device is left out: it
// changes when a network file system is mounted anew.
struct file_identity_t {
    explicit file_identity_t(const struct stat &st) : inode(st.st_ino), size(st.st_size), mtime(st.st_mtim) {}
    bool operator==(const file_identity_t &other) const
    {
        return inode == other.inode && size == other.size && mtime.tv_sec == other.mtime.tv_sec &&
               mtime.tv_nsec == other.mtime.tv_nsec;
    }

    ino_t inode;
    off_t size;
    timespec mtime;
};

// A node that is not listed yet, and its file.
struct found_file_t {
    file_node_ptr node;
    file_identity_t file;
};

// The wire's list, with an index beside the chain that makes finding, adding and removing cheap.
struct fax_index_t : file_list_t {
    struct place_t {
        file_node_t *before;  // the node before it, null for the head
        file_identity_t file;
    };

    fax_index_t() : file_list_t{} {}
    fax_index_t(const fax_index_t &) = delete;
    fax_index_t &operator=(const fax_index_t &) = delete;

    std::unordered_map<faxid_t, place_t> places;                       // by fax id
    std::unordered_multimap<std::string_view, file_node_t *> by_name;  // views of the nodes' own names
    file_node_t *tail = nullptr;
    u_int name_sum = 0;  // the check value of the chain as it is now; check_value is that of the last scan

    // For scans: the dropped nodes whose files they list again, and what they last complained about.
    file_node_t *dropped = nullptr;
    std::string complaints;
    bool complained_again = false;  // the last scan failed as the one before, and logged nothing
    inbox_watch_t watch;
    time_t last_touch = 0;  // mtime of the marker at the last scan
};

fax_index_t *create_new_list();       // empty, to be freed by free_index(); null without memory
void free_index(fax_index_t *index);  // with its chain; null is allowed

// Inserts by mtime, after equal ones. Returns 1, the list then owning the node, or 0 without memory. For the
// fax system's other programs; none here calls it, because scans add many at once.
int add_file_node(fax_index_t *index, file_node_t *node, const file_identity_t &file);

// Inserts many, which must be sorted by mtime, in one walk along the chain at most. Throws std::bad_alloc
// without memory; the nodes of `found` that were inserted are then null.
void add_file_nodes(fax_index_t *index, std::vector<found_file_t> &found);

// The node with that id, or null: unlinked and the caller's, or still the list's.
file_node_t *delete_file_node(fax_index_t *index, faxid_t faxid);
file_node_t *get_file_node(const fax_index_t *index, faxid_t faxid);

// Drops the node with that id, if there is one. If a file of its name is there, the next scan lists it under
// a new id, also when its time is not above the mark.
void drop_file_node(fax_index_t *index, faxid_t faxid);

// Computes the check value from scratch: the sum of all names' bytes, each taken as signed. For the fax
// system's other programs; none here calls it, because the other functions keep the sum up to date.
void update_index_check_value(fax_index_t *index);

}  // namespace faxtray
