// Both kinds of inbox, users' and incoming ones, are the same record, so that every request is served by the
// same code.
#include "inbox/user_node.h"

#include <sys/param.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "inbox/fax_index.h"
#include "log/report.h"
#include "util/paths.h"
#include "util/settings.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

void free_user_node(user_node_t *node)
{
    if (!node)
        return;
    free_index(node->index);
    free_pw(node->identity);
    free(node->inbox);
    free(node->description);
    free(node);
}

user_node_ptr new_user_node(const char *inbox, pw_req_ptr identity, const char *description)
{
    // Zeroed, so that its owner can free it at any point below.
    user_node_ptr node(static_cast<user_node_t *>(calloc(1, sizeof(user_node_t))));
    if (!node)
        return nullptr;
    node->identity = identity.release();
    node->inbox = strdup(inbox);
    if (!node->inbox || (description && !(node->description = strdup(description))))
        return nullptr;
    return node;
}

int add_user_node(inbox_list_t *list, user_node_t *node)
{
    try {
        if (list->insert(node))
            return 1;
    } catch (const std::bad_alloc &) {
        report("add_user_node: malloc(): %s\n", strerror(ENOMEM));
        return 0;
    }
    fprintf(stderr, "add_user_node: Duplicate user: [%s]\n", inbox_name(node));
    return 0;
}

user_node_t *delete_user_node(inbox_list_t *list, user_node_t *node)
{
    return list && node ? list->remove(inbox_name(node)) : nullptr;
}

user_node_t *get_user_node(const inbox_list_t *list, const char *name)
{
    return list ? list->find(name) : nullptr;
}

// Kept: called also for inboxes whose directory has gone; ENOENT is no failure.
int dump_user_node(user_node_t *node)
{
    if (node->index)  // loaded: the marker says when
        return 1;
    const char *marker = mk_path(node->inbox, ".inbox_index");
    if (!marker)
        return 0;
    if (unlink(marker) == 0 || errno == ENOENT)
        return 1;
    report("dump_user_node: unlink(\"%s\"): %s.\n", marker, strerror(errno));
    return 0;
}

void free_user_list(inbox_list_t *list)
{
    for (user_node_t *node = list->release(); node;) {
        user_node_ptr gone(node);
        node = node->next;
    }
}

// Nodes are all asked before any is freed: a failure is reported and stops nothing.
void dump_list(inbox_list_t *list)
{
    for (user_node_t *node = list->head; node; node = node->next)
        if (!dump_user_node(node))  // Kept: the message ends in a comma; scripts that read the log expect it.
            fprintf(stderr, "%s: Can't save status for inbox: [%s],\n", Program, inbox_name(node));
    free_user_list(list);
}

void dump_user_info(const inbox_list_t *list)
{
    for (const user_node_t *node = list->head; node; node = node->next) {
        fprintf(stderr, "Name:       [%s]\n", inbox_name(node));
        fprintf(stderr, "  Inbox:    [%s]\n", node->inbox);
        fprintf(stderr, "  DF:       [%s]\n", shown(node->description));
        fprintf(stderr, "  Last Get: %ld\n", static_cast<long>(node->last_get));
    }
}

const char *mk_path(const char *directory, const char *name)
{
    static char path[MAXPATHLEN];

    char joined[MAXPATHLEN];
    int length = name ? snprintf(joined, sizeof joined, "%s/%s", directory, name)
                      : snprintf(joined, sizeof joined, "%s", directory);
    if (length < 0 || static_cast<size_t>(length) >= sizeof joined) {
        if (name)
            trprintf("%s: \"%s/%s\" exceeds MAXPATHLEN.\n", "mk_path", directory, name);
        else
            trprintf("%s: \"%s\" exceeds MAXPATHLEN.\n", "mk_path", directory);
        return nullptr;
    }

    // mkpath puts the current directory before a relative one, so the result may be longer than the buffer.
    c_string canonical(mkpath(joined));
    if (!canonical || strlen(canonical.get()) >= sizeof path) {
        trprintf("%s: mkpath failed.\n", "mk_path");
        return nullptr;
    }
    memcpy(path, canonical.get(), strlen(canonical.get()) + 1);
    return path;
}

}  // namespace faxtray
