// av_list: keyed sets of settings. A list has a key, a check value and a chain of attributes; lists
// are chained into tables.
//
// Always: the attributes of a list are sorted by name (plain byte order), each name once; a table
// keeps the order in which entries were added, an update takes the place of the old entry.
//
// What fails, fails for lack of memory or for a null argument: 0 or null, with a line on standard error.
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

av_list_t *new_av_list(const char *key);                      // copies `key`; check value 0, no attributes
av_list_t *av_new(const char *key);                           // the same
av_node_t *new_av_node(const char *attr, const char *value);  // copies both; a null value becomes ""

// Inserts in name order; a node of the same name is replaced and freed. Takes the node over. Always 1.
int add_av_node(av_node_t **chain, av_node_t *node);

// 1; also, kept so, for a null list or an empty name, which change nothing. 0 without memory.
int av_put(av_list_t *list, const char *attr, const char *value);

const char *av_getv(const av_list_t *list, const char *attr);  // the list's own text, or null
av_node_t *av_get_node(const av_list_t *list, const char *attr);
int av_delete(av_list_t *list, const char *attr);  // always 1; `list` must not be null

// The first entry of that key, the table's own, or null; an empty key is an error.
av_list_t *av_get(av_list_t *table, key_compare cmp, const char *key);

// Deep copies, which the caller frees.
av_list_t *av_copy(const av_list_t *list);       // one entry, its next null; its key must not be empty
av_list_t *copy_av_list(const av_list_t *list);  // the same, whatever the key
av_node_t *copy_av_node(const av_node_t *node);  // the node and all behind it
av_list_t *avl_copy(const av_list_t *table);     // every entry, in order

// Puts a copy of `list` in place of the first entry of the same key, or at the end. 1 or 0.
int avl_update(av_list_t **table, key_compare cmp, const av_list_t *list);

// Removes and frees the first entry of that key. 1, also when there is none; 0 for a null key.
int avl_delete(av_list_t **table, key_compare cmp, const char *key);

void av_free(av_list_t *list);       // with every entry behind it; null is allowed
void free_av_node(av_node_t *node);  // with every node behind it; null is allowed

// Prints `list` and every entry behind it; null prints nothing. 1, or 0 when writing fails.
int av_printf(FILE *stream, const av_list_t *list);

// 0 after success, 1 after failure, of the makers (new_*, av_new), av_get, av_copy and what calls them,
// and av_printf; the others leave it alone.
int av_error();

using av_list_ptr = std::unique_ptr<av_list_t, deleter<av_free>>;  // frees the chain behind it too
using av_node_ptr = std::unique_ptr<av_node_t, deleter<free_av_node>>;

}  // namespace faxtray
