// Attribute-value lists: plain records with malloc'd strings, in singly linked chains. Every chain is
// walked in a loop, so that its length costs no stack.
#include "config/av_list.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "util/text.h"

namespace faxtray {

static int av_errno = 0;  // see av_error()

static void free_one_node(av_node_t *node)
{
    free(node->attr);
    free(node->value);
    free(node);
}

// One entry of a table, without the entries after it.
static void free_one_list(av_list_t *list)
{
    free_av_node(list->nodes);
    free(list->key);
    free(list);
}

void free_av_node(av_node_t *node)
{
    while (node) {
        av_node_t *next = node->next;
        free_one_node(node);
        node = next;
    }
}

void av_free(av_list_t *list)
{
    while (list) {
        av_list_t *next = list->next;
        free_one_list(list);
        list = next;
    }
}

// A list with that key, or null, without a message, when out of memory.
static av_list_t *make_list(const char *key)
{
    av_list_ptr list(static_cast<av_list_t *>(calloc(1, sizeof(av_list_t))));
    if (!list || !(list->key = strdup(key)))
        return nullptr;
    return list.release();
}

// The same for a node; a null value becomes "".
static av_node_t *make_node(const char *attr, const char *value)
{
    av_node_ptr node(static_cast<av_node_t *>(calloc(1, sizeof(av_node_t))));
    if (!node || !(node->attr = strdup(attr)) || !(node->value = strdup(value ? value : "")))
        return nullptr;
    return node.release();
}

av_list_t *new_av_list(const char *key)
{
    av_list_t *list = make_list(key);
    if (!list)
        fprintf(stderr, "new_av_list: Out of memory: %s.\n", strerror(errno));
    av_errno = list ? 0 : 1;
    return list;
}

av_list_t *av_new(const char *key)
{
    return new_av_list(key);
}

av_node_t *new_av_node(const char *attr, const char *value)
{
    av_errno = 1;
    if (is_empty(attr)) {
        fprintf(stderr, "new_av_node: Null attribute.\n");
        return nullptr;
    }
    av_node_t *node = make_node(attr, value);
    if (!node) {
        fprintf(stderr, "new_av_node: Out of memory: %s.\n", strerror(errno));
        return nullptr;
    }
    av_errno = 0;
    return node;
}

int add_av_node(av_node_t **chain, av_node_t *node)
{
    int order = 1;
    while (*chain && (order = strcmp((*chain)->attr, node->attr)) < 0)
        chain = &(*chain)->next;

    // `*chain` is now the link that will hold the node: the first greater name, the same name, or the end.
    av_node_t *rest = *chain;
    if (rest && order == 0) {
        rest = rest->next;
        free_one_node(*chain);
    }
    node->next = rest;
    *chain = node;
    return 1;
}

int av_put(av_list_t *list, const char *attr, const char *value)
{
    if (!list || is_empty(attr))
        return 1;
    av_node_t *node = new_av_node(attr, value);
    if (!node) {
        fprintf(stderr, "av_put: Can't create new av node.\n");
        return 0;
    }
    return add_av_node(&list->nodes, node);
}

av_node_t *av_get_node(const av_list_t *list, const char *attr)
{
    if (!list || !attr)
        return nullptr;
    av_node_t *node = list->nodes;
    while (node && strcmp(node->attr, attr) != 0)
        node = node->next;
    return node;
}

const char *av_getv(const av_list_t *list, const char *attr)
{
    const av_node_t *node = av_get_node(list, attr);
    return node ? node->value : nullptr;
}

int av_delete(av_list_t *list, const char *attr)
{
    av_node_t **link = &list->nodes;
    while (*link && strcmp((*link)->attr, attr) != 0)
        link = &(*link)->next;
    if (av_node_t *node = *link) {
        *link = node->next;
        free_one_node(node);
    }
    return 1;
}

av_list_t *av_get(av_list_t *table, key_compare cmp, const char *key)
{
    av_errno = 0;
    if (is_empty(key)) {
        fprintf(stderr, "av_get: Invalid search key: [%s].\n", shown(key));
        av_errno = 1;
        return nullptr;
    }
    while (table && cmp(table->key, key) != 0)
        table = table->next;
    return table;
}

// A copy of the node and all after it, or null, without a message, when out of memory.
static av_node_t *copy_nodes(const av_node_t *node)
{
    // `head` owns the copy from its first node on, so that a failure half-way frees what was made.
    av_node_ptr head;
    for (av_node_t *last = nullptr; node; node = node->next) {
        av_node_t *copy = make_node(node->attr, node->value);
        if (!copy)
            return nullptr;
        if (last)
            last->next = copy;
        else
            head.reset(copy);
        last = copy;
    }
    return head.release();
}

av_node_t *copy_av_node(const av_node_t *node)
{
    if (!node) {
        fprintf(stderr, "copy_av_node: Bad av node\n");
        return nullptr;
    }
    av_node_t *copy = copy_nodes(node);
    if (!copy)
        fprintf(stderr, "copy_av_node: Out of memory: %s.\n", strerror(errno));
    return copy;
}

av_list_t *copy_av_list(const av_list_t *list)
{
    if (!list) {
        fprintf(stderr, "copy_av_list: Bad av node.\n");
        return nullptr;
    }
    // A list without attributes has a null chain, which is no failure.
    av_list_ptr copy(make_list(list->key));
    if (!copy || (list->nodes && !(copy->nodes = copy_nodes(list->nodes)))) {
        fprintf(stderr, "copy_av_list: Out of memory: %s.\n", strerror(errno));
        return nullptr;
    }
    copy->check_value = list->check_value;
    return copy.release();
}

av_list_t *av_copy(const av_list_t *list)
{
    av_errno = 1;
    if (!list) {
        fprintf(stderr, "av_copy: Can't copy null av list.\n");
        return nullptr;
    }
    if (is_empty(list->key)) {
        fprintf(stderr, "av_copy: Can't copy av list with null key.\n");
        return nullptr;
    }
    av_list_t *copy = copy_av_list(list);
    if (!copy) {
        fprintf(stderr, "av_copy: Out of memory: %s.\n", strerror(errno));
        return nullptr;
    }
    av_errno = 0;
    return copy;
}

av_list_t *avl_copy(const av_list_t *table)
{
    av_list_ptr head;
    for (av_list_t *last = nullptr; table; table = table->next) {
        av_list_t *copy = av_copy(table);
        if (!copy) {
            fprintf(stderr, "avl_copy: av_copy failed.\n");
            return nullptr;
        }
        if (last)
            last->next = copy;
        else
            head.reset(copy);
        last = copy;
    }
    return head.release();
}

int avl_update(av_list_t **table, key_compare cmp, const av_list_t *list)
{
    if (!list) {
        fprintf(stderr, "avl_update: Ignoring null av_list_t node.\n");
        return 0;
    }
    av_list_t *copy = av_copy(list);
    if (!copy) {
        fprintf(stderr, "avl_update: av_copy failed.\n");
        return 0;
    }
    // The copy takes the old entry's place in the chain, so that an update keeps the order of the others.
    while (*table && cmp(copy->key, (*table)->key) != 0)
        table = &(*table)->next;
    if (av_list_t *old = *table) {
        copy->next = old->next;
        free_one_list(old);
    }
    *table = copy;
    return 1;
}

int avl_delete(av_list_t **table, key_compare cmp, const char *key)
{
    if (!key) {
        fprintf(stderr, "%s: Ignoring null av_list_t key.\n", "avl_delete");
        return 0;
    }
    while (*table && cmp((*table)->key, key) != 0)
        table = &(*table)->next;
    if (av_list_t *old = *table) {
        *table = old->next;
        free_one_list(old);
    }
    return 1;
}

int av_printf(FILE *stream, const av_list_t *list)
{
    av_errno = 0;
    for (; list; list = list->next) {
        // A full disk shows at the first line that cannot be written; the rest is not tried.
        int written = fprintf(stream, "key:         [%s]\n", list->key);
        for (const av_node_t *node = list->nodes; node && written >= 0; node = node->next)
            written = fprintf(stream, "    %s = [%s]\n", node->attr, node->value);
        if (written < 0) {
            fprintf(stderr, "av_printf: Problem printing av list: %s.\n", strerror(errno));
            av_errno = 1;
            return 0;
        }
    }
    return 1;
}

int av_error()
{
    return av_errno;
}

}  // namespace faxtray
