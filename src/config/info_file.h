// info_file: the format of USER_LIST.info and MODEMS.info: "[key]" sections of "attribute = value"
// lines, with a "default" section merged under every other.
#pragma once

#include <cstdio>
#include <ctime>

#include "config/av_list.h"

namespace faxtray {

// Opens `path`; its "default" section, merged over `*defaults`, replaces `*defaults` when there is one.
// `*mtime` gets the file's modification time. Messages go to `error_stream` (null: none). Null on failure.
FILE *info_open(const char *path, av_list_t **defaults, struct timespec *mtime, FILE *error_stream);

// The section of that key, or with a null or empty key the next one, merged over `defaults` (may be
// null). The caller frees. Null at the end, when there is none, or on failure (info_error()).
av_list_t *info_get(FILE *file, const av_list_t *defaults, key_compare cmp, const char *key);

av_list_t *info_merge(av_list_t *list, const av_list_t *defaults);  // `list` itself, changed; null on failure
av_list_t *info_strip(av_list_t *list, const av_list_t *defaults);  // its inverse
int info_write(FILE *file, const av_list_t *list);
int info_write_list(FILE *file, const av_list_t *table);
int info_rewind(FILE *file);
int info_stale(const struct timespec &mtime, const char *path);  // 1 when modified after `mtime`
void info_close(FILE **file, av_list_t **list_a, av_list_t **list_b);
int info_error();

// The sum of all name and value characters as signed bytes.
void info_set_check_value(av_list_t *list);

av_list_t *get_row(FILE *file);
int parse_error();
const char *info_parse_value(const char *text);     // static buffer of 512 bytes
const char *info_unparse_value(const char *value);  // another one

}  // namespace faxtray
