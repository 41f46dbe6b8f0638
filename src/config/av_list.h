// av_list: keyed sets of settings. A list has a key, a check value and a chain of attributes; lists
// are chained into tables.
//
// Always: the attributes of a list are sorted by name (plain byte order), each name once; a table
// keeps the order in which entries were added, and an update takes the place of the old entry.
//
// Functions fail only when out of memory or given a null argument: they then return 0 or null and print a
// line on standard error.
//
// copy_av_node, avl_copy and avl_delete are for the fax system's
// other programs; none here calls them.
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

// Takes over `node` and inserts it in name order; a node of the same name is replaced and freed. Returns 1.
int add_av_node(av_node_t **chain, av_node_t *node);

// Sets an attribute. Returns 1 (Kept: also for a null list or an empty name, which are ignored), or 0 when
// out of memory.
int av_put(av_list_t *list, const char *attr, const char *value);

const char *av_getv(const av_list_t *list, const char *attr);  // the text belongs to the list; null if absent
av_node_t *av_get_node(const av_list_t *list, const char *attr);
int av_delete(av_list_t *list, const char *attr);  // returns 1, also if absent; `list` must not be null

// The first entry with that key, which belongs to the table, or null; an empty key is an error.
av_list_t *av_get(av_list_t *table, key_compare cmp, const char *key);

// Deep copies, which the caller frees.
av_list_t *av_copy(const av_list_t *list);       // one entry, its next null; its key must not be empty
av_list_t *copy_av_list(const av_list_t *list);  // the same, whatever the key
av_node_t *copy_av_node(const av_node_t *node);  // the node and all after it
av_list_t *avl_copy(const av_list_t *table);     // every entry, in order

// Puts a copy of `list` in place of the first entry with the same key, or at the end. Returns 1 or 0.
int avl_update(av_list_t **table, key_compare cmp, const av_list_t *list);

// Removes and frees the first entry with that key. Returns 1, also if there is none, or 0 for a null key.
int avl_delete(av_list_t **table, key_compare cmp, const char *key);

void av_free(av_list_t *list);       // with every entry after it; null is allowed
void free_av_node(av_node_t *node);  // with every node after it; null is allowed

// Prints `list` and every entry after it; null prints nothing. Returns 1, or 0 if writing fails.
int av_printf(FILE *stream, const av_list_t *list);

// 0 after success, 1 after failure. Set by new_*, av_new, av_get, av_copy (and their callers) and av_printf;
// other calls leave it alone.
int av_error();

using av_list_ptr = std::unique_ptr<av_list_t, deleter<av_free>>;  // frees the chain after it too
using av_node_ptr = std::unique_ptr<av_node_t, deleter<free_av_node>>;

}  // namespace faxtray
