// Clients page through an index of any length in slices of at most 100 faxes, and a commit removes all that
// they have been shown: the commit mark remembers how far that was.
#include "inbox/inbox_index.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "inbox/inbox_scan.h"
#include "inbox/listed_file.h"
#include "inbox/messages.h"
#include "util/trace.h"

namespace faxtray {

int load_inbox(user_node_t *user)
{
    if (!user->index) {
        user->index = create_new_list();
        if (!user->index) {
            trprintf("load_inbox: Can't create inbox index for: [%s]\n", inbox_name(user));
            // Kept: the two dots, here and below; those who watch the log search for the line as it is.
            fprintf(stderr, "load_inbox: Can't create inbox index..\n");
            return 0;
        }
    }
    if (update_index(user) != 1) {
        if (!user->index->complained_again)  // like the reason, not once a request
            fprintf(stderr, "load_inbox: Can't create inbox index..\n");
        return 0;
    }
    return 1;
}

// Bytes of a reply that a node takes up, or a few more: its texts, and what encoding adds to them.
static size_t reply_size(const file_node_t *node)
{
    return 64 + strlen(node->name) + strlen(node->sender_fax) + strlen(node->subaddress) +
           strlen(node->pwd_frame);
}
static_assert(2 * (64 + NAME_MAX + 3 * longest_listed_text) <= max_listing);

// Copies at most `count` nodes, and no more than a reply holds, from `start` on, to `*head`. `*shown` becomes
// the mtime of the last node copied. Kept: a slice of one fax leaves *shown unchanged, so a commit after it
// removes nothing more; clients that look at one fax at a time remove it by its id.
static bool copy_index(const file_node_t *start, int count, file_node_t **head, time_t *shown, err_t *error)
{
    if (count <= 0 || count > MAX_INDEX_COUNT)
        count = MAX_INDEX_COUNT;
    file_node_t **tail = head;
    size_t size = 0;
    for (const file_node_t *node = start; node && count > 0; node = node->next, count--) {
        size += reply_size(node);
        if (size > max_listing)
            break;
        *tail = copy_file_node(node, error);
        if (!*tail) {
            free_file_node(*head);
            *head = nullptr;
            return false;
        }
        tail = &(*tail)->next;
        if (node != start)
            *shown = node->mtime;
    }
    return true;
}

// Where the slice of *count faxes from `start` on begins if its reply would be too long: its oldest faxes are
// then left out, and *count becomes what remains. Clients that page backwards ask on from there.
static const file_node_t *fitting_end(const file_node_t *start, int *count)
{
    *count = std::min(*count, MAX_INDEX_COUNT);
    size_t size = 0;
    const file_node_t *node = start;
    for (int n = 0; n < *count; n++, node = node->next)
        size += reply_size(node);
    for (; size > max_listing; start = start->next, --*count)
        size -= reply_size(start);
    return start;
}

// Where a slice that ends at `node` begins. If fewer than *count faxes precede the node, *count becomes the
// number up to and including it. Kept: without a usable count the slice begins at the head, and so, being cut
// at 100, may not reach the node; clients give a count.
static const file_node_t *slice_start(const fax_index_t *index, const file_node_t *node, int *count)
{
    int position = 0;  // of the node, from 0
    for (const file_node_t *at = index->head; at != node; at = at->next)
        position++;
    int skipped = 0;
    if (*count > 0 && *count <= position)
        skipped = position - *count + 1;
    else
        *count = position + 1;
    const file_node_t *start = index->head;
    while (skipped-- > 0)
        start = start->next;
    return fitting_end(start, count);
}

file_list_t *get_index(user_node_t *user, u_int check_value, int faxid, int how, int count, err_t *error)
{
    static file_list_t result;

    // The reply that used the last slice has been sent.
    free_file_node(result.head);
    result = {};
    if (!load_inbox(user)) {
        trprintf("get_index: load_inbox failed.\n");
        refuse(error, IE_STATE, 0, "Trayd: Can't update index.");
        return nullptr;
    }
    const fax_index_t *index = user->index;
    if (check_value != 0 && check_value == index->check_value) {
        trprintf("get_index: inbox hasn't changed since last request.\n");
        refuse(error, IE_UNCHANGED, 0, "Trayd: Index has not changed since last request.");
        return nullptr;
    }
    result.check_value = index->check_value;
    // Kept: an empty index is an answer, whatever id was asked for.
    if (!index->head)
        return &result;

    const file_node_t *start = index->head;
    if (faxid == 0) {  // Kept: from the oldest on, and forwards, whatever `how` says
        how = 1;
    } else {
        start = get_file_node(index, static_cast<faxid_t>(faxid));
        if (!start) {
            trprintf("get_index: invalid faxid: %d.\n", faxid);
            refuse(error, IE_INVALID, 0, "Trayd: Invalid faxid: %d.\n", faxid);
            return nullptr;
        }
    }
    if (how != 0 && how != 1) {
        trprintf("get_index: invalid how: %d.\n", how);
        refuse(error, IE_BAD_HOW, 0, "Trayd: Invalid how: %d.\n", how);
        return nullptr;
    }
    if (how == 0)
        start = slice_start(index, start, &count);

    // The mark only rises: a client that pages backwards has seen the newer faxes too.
    time_t shown = 0;
    if (!copy_index(start, count, &result.head, &shown, error))
        return nullptr;
    user->commit_mark = std::max(user->commit_mark, shown);
    return &result;
}

int commit_index(user_node_t *user)
{
    fax_index_t *index = user->index;
    if (!index || !index->head || index->head->mtime > user->commit_mark)
        return 1;
    // Kept: the node is dropped even if its file cannot be removed, and the message has no line end; programs
    // that read the log take it together with the next line.
    while (index->head && index->head->mtime <= user->commit_mark) {
        const faxid_t faxid = index->head->faxid;
        const char *path = mk_path(user->inbox, index->head->name);
        if (!path) {
            fprintf(stderr, "Trayd: Warning: Can't create file path.\n");
            drop_file_node(index, faxid);
        } else if (!remove_listed(index, faxid, path))
            fprintf(stderr, "Trayd: Can't remove committed file: [%s]: %s.", path, strerror(errno));
    }
    user->commit_mark = 0;
    return 1;
}

u_int get_fax_count(const user_node_t *user)
{
    return user && user->index ? static_cast<u_int>(user->index->places.size()) : 0;
}

}  // namespace faxtray
