// The index maps each fax id to the node before its own, so that a node of the singly linked chain can be
// unlinked without walking to it. Clients commit thousands of faxes one by one. Names lead to their nodes,
// for scans that look at a few files only; a file that has changed is listed twice, so a name may have
// several.
#include "inbox/fax_index.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "inbox/messages.h"
#include "util/trace.h"

namespace faxtray {

// Nodes

file_node_t *build_node(const file_info_t &source, const char **refused)
{
    file_node_ptr node(static_cast<file_node_t *>(calloc(1, sizeof(file_node_t))));
    *refused = nullptr;
    if (!node)
        return nullptr;
    // Copy everything, then replace the borrowed strings. All four are null first, so that the node can be
    // freed when one cannot be copied.
    static_cast<file_info_t &>(*node) = source;
    char **fields[] = {&node->name, &node->sender_fax, &node->subaddress, &node->pwd_frame};
    const char *texts[] = {source.name, source.sender_fax, source.subaddress, source.pwd_frame};
    for (char **field : fields)
        *field = nullptr;
    for (size_t i = 0; i < std::size(fields); i++) {
        const char *text = texts[i] ? texts[i] : "";
        *fields[i] = strndup(text, longest_listed_text);
        if (!*fields[i]) {
            *refused = text;
            return nullptr;
        }
    }
    return node.release();
}

file_node_t *new_file_node(const char *name, const char *sender_fax, const char *subaddress,
                           const char *pwd_frame, int pages, int is_fax, faxid_t faxid, u_int size,
                           time_t mtime, err_t *error)
{
    const file_info_t source = {borrowed(name),
                                borrowed(sender_fax),
                                borrowed(subaddress),
                                borrowed(pwd_frame),
                                pages,
                                is_fax,
                                faxid,
                                size,
                                mtime};
    // build_node prints nothing, since the two modules that use it word their messages differently.
    const char *refused;
    file_node_t *node = build_node(source, &refused);
    if (node)
        return node;
    int cause = errno;  // tracing may change it
    if (refused) {
        trprintf("new_file_node: strdup(\"%s\"): %s\n", refused, strerror(cause));
        refuse(error, IE_SYSTEM, cause, "Trayd: strdup(\"%s\"): %s\n", refused, strerror(cause));
    } else {
        trprintf("new_file_node: malloc(): %s\n", strerror(cause));
        refuse(error, IE_SYSTEM, cause, "Trayd: malloc(): %s\n", strerror(cause));
    }
    return nullptr;
}

file_node_t *copy_file_node(const file_node_t *node, err_t *error)
{
    return new_file_node(node->name, node->sender_fax, node->subaddress, node->pwd_frame, node->pages,
                         node->is_fax, node->faxid, node->size, node->mtime, error);
}

void free_file_node(file_node_t *node)
{
    while (node) {
        file_node_t *next = node->next;
        free(node->name);
        free(node->sender_fax);
        free(node->subaddress);
        free(node->pwd_frame);
        free(node);
        node = next;
    }
}

void free_file_list(file_list_t *list)
{
    if (!list)
        return;
    free_file_node(list->head);
    free(list);
}

file_list_t *copy_file_list(const file_list_t *list)
{
    if (!list) {
        fprintf(stderr, "copy_file_list: NULL file_list_t pointer\n");
        return nullptr;
    }
    std::unique_ptr<file_list_t, deleter<free_file_list>> copy(
        static_cast<file_list_t *>(calloc(1, sizeof(file_list_t))));
    if (!copy) {
        fprintf(stderr, "copy_file_list: memory allocation failure, errno=%d\n", errno);
        return nullptr;
    }
    copy->check_value = list->check_value;
    file_node_t **tail = &copy->head;
    for (const file_node_t *node = list->head; node; node = node->next) {
        *tail = copy_file_node(node, nullptr);
        if (!*tail) {
            fprintf(stderr, "copy_file_list: allocation failure, node[%s], errno=%d\n",
                    node->name ? node->name : "", errno);
            return nullptr;
        }
        tail = &(*tail)->next;
    }
    return copy.release();
}

// The chain

// A name's share of the check value. Kept: signed bytes, as clients compute it too.
static u_int sum_of(const char *name)
{
    u_int sum = 0;
    for (; *name; name++)
        sum += static_cast<u_int>(static_cast<signed char>(*name));
    return sum;
}

// The link that points to the node after `previous`; null stands for the place before the head.
static file_node_t *&link_after(fax_index_t *index, file_node_t *previous)
{
    return previous ? previous->next : index->head;
}

// Links `node` in after `previous`. Throws std::bad_alloc, with nothing changed.
static void link_node(fax_index_t *index, file_node_t *previous, file_node_t *node,
                      const file_identity_t &file)
{
    // These alone may throw.
    const auto named = index->by_name.emplace(node->name, node);
    try {
        index->places.insert_or_assign(node->faxid, fax_index_t::place_t{previous, file});
    } catch (...) {
        index->by_name.erase(named);
        throw;
    }
    file_node_t *&link = link_after(index, previous);
    node->next = link;
    link = node;
    if (node->next)
        index->places.at(node->next->faxid).before = node;
    else
        index->tail = node;
    index->name_sum += sum_of(node->name);
}

// The node after which one of that mtime belongs, null if it becomes the head. The search starts at `from`, a
// node that is known to come before it; null starts at the head.
static file_node_t *place_for(fax_index_t *index, file_node_t *from, time_t mtime)
{
    // New faxes are almost always the newest.
    if (index->tail && index->tail->mtime <= mtime)
        return index->tail;
    while (file_node_t *next = link_after(index, from)) {
        if (next->mtime > mtime)
            break;
        from = next;
    }
    return from;
}

int add_file_node(fax_index_t *index, file_node_t *node, const file_identity_t &file)
{
    try {
        link_node(index, place_for(index, nullptr, node->mtime), node, file);
        return 1;
    } catch (const std::bad_alloc &) {
        return 0;
    }
}

void add_file_nodes(fax_index_t *index, std::vector<found_file_t> &found)
{
    file_node_t *previous = nullptr;
    for (auto &[node, file] : found) {
        link_node(index, place_for(index, previous, node->mtime), node.get(), file);
        previous = node.release();
    }
}

file_node_t *delete_file_node(fax_index_t *index, faxid_t faxid)
{
    auto found = index->places.find(faxid);
    if (found == index->places.end())
        return nullptr;
    file_node_t *previous = found->second.before;
    file_node_t *&link = link_after(index, previous);
    file_node_t *node = link;
    link = node->next;  // and the node that follows gets `previous` as its predecessor
    if (node->next)
        index->places.at(node->next->faxid).before = previous;
    else
        index->tail = previous;
    index->places.erase(found);
    auto [named, end] = index->by_name.equal_range(node->name);
    index->by_name.erase(std::find_if(named, end, [&](const auto &entry) { return entry.second == node; }));
    index->name_sum -= sum_of(node->name);
    node->next = nullptr;
    return node;
}

file_node_t *get_file_node(const fax_index_t *index, faxid_t faxid)
{
    auto found = index->places.find(faxid);
    if (found == index->places.end())
        return nullptr;
    file_node_t *previous = found->second.before;
    return previous ? previous->next : index->head;
}

void drop_file_node(fax_index_t *index, faxid_t faxid)
{
    file_node_t *node = delete_file_node(index, faxid);
    if (!node)
        return;
    node->next = index->dropped;
    index->dropped = node;
}

void update_index_check_value(fax_index_t *index)
{
    index->name_sum = 0;
    for (const file_node_t *node = index->head; node; node = node->next)
        index->name_sum += sum_of(node->name);
    index->check_value = index->name_sum;
}

fax_index_t *create_new_list()
{
    return new (std::nothrow) fax_index_t;
}

void free_index(fax_index_t *index)
{
    if (!index)
        return;
    free_file_node(index->head);
    free_file_node(index->dropped);
    delete index;
}

}  // namespace faxtray
