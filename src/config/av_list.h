// av_list: keyed sets of settings. A list has a key, a check value and a chain of attributes; lists
// are chained into tables.
//
// Always: the attributes of a list are sorted by name (plain byte order), each name once; a table
// keeps the order in which entries were added, an update takes the place of the old entry.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>

#include "util/owned.h"

namespace faxtray {

struct av_node_t {
    char *attr;   // never null or empty
    char *value;  // never null
    av_node_t *next;
};

struct av_list_t {
    char *key;
    int32_t check_value;
    av_node_t *nodes;
    av_list_t *next;  // next entry of a table
};

// How two keys compare: 0 for the same key. strcmp, or munged_strcmp for user and modem names.
using key_compare = int (*)(const char *, const char *);

av_list_t *new_av_list(const char *key);
av_list_t *av_new(const char *key);
av_node_t *new_av_node(const char *attr, const char *value);

// Inserts in name order; a node of the same name is replaced and freed. Takes the node over. Always 1.
int add_av_node(av_node_t **chain, av_node_t *node);

// 1; also, kept so, for a null list or an empty name, which change nothing. 0 without memory.
int av_put(av_list_t *list, const char *attr, const char *value);
const char *av_getv(const av_list_t *list, const char *attr);  // the list's own text, or null
av_node_t *av_get_node(const av_list_t *list, const char *attr);
int av_delete(av_list_t *list, const char *attr);
av_list_t *av_get(av_list_t *table, key_compare cmp, const char *key);
av_list_t *av_copy(const av_list_t *list);  // one entry, its next null
av_list_t *copy_av_list(const av_list_t *list);
av_node_t *copy_av_node(const av_node_t *node);  // the node and all behind it
av_list_t *avl_copy(const av_list_t *table);
int avl_update(av_list_t **table, key_compare cmp, const av_list_t *list);
int avl_delete(av_list_t **table, key_compare cmp, const char *key);
void av_free(av_list_t *list);  // with everything behind it; null is allowed
void free_av_node(av_node_t *node);
int av_printf(FILE *stream, const av_list_t *list);
int av_error();  // 0 after success, 1 after failure

using av_list_ptr = std::unique_ptr<av_list_t, deleter<av_free>>;  // frees the chain behind it too

}  // namespace faxtray
