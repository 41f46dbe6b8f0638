// info_file: the format of USER_LIST.info and MODEMS.info: "[key]" sections of "attribute = value"
// lines, with a "default" section merged under every other.
//
//   # a comment                      ignored, as are empty lines
//   [Mary O'Neil]                    section line: the key, trimmed; what follows the "]" is ignored
//   email_address = mary@localhost   a name of letters, digits and "_", at most 63; then "=", the value
//   human_name = "  Mary "  ; note   quotes keep blanks; an unescaped ";" or "#" ends the value
//   group                            no "=" or no value: the empty value
//
// Escapes: \\ \n \t \" \# \;. A value holds at most 511 characters. The values of a section whose key
// begins with "__" are raw: neither escapes, nor quotes, nor comments. A line that is none of these is
// reported and, kept so, ends its section: the lines up to the next section line are skipped.
//
// Line and section faults are told on standard error, all else on the stream given to info_open.
#pragma once

#include <cstdio>
#include <ctime>

#include "config/av_list.h"

namespace faxtray {

// Opens `path`, for writing too where that is allowed. Its "default" section, merged over `*defaults`,
// replaces `*defaults` when there is one. `*mtime` gets the file's modification time, 0 on failure.
// Messages go to `error_stream` from here to info_close (null: none). Null on failure.
FILE *info_open(const char *path, av_list_t **defaults, struct timespec *mtime, FILE *error_stream);

// The section of that key, or with a null or empty key the next one, merged over `defaults` (may be
// null). The caller frees. Null at the end, when there is none (info_error() as it was), or on failure
// (info_error() not 0).
av_list_t *info_get(FILE *file, const av_list_t *defaults, key_compare cmp, const char *key);

// Both change `list` itself and return it; null on failure, `list` then still the caller's.
av_list_t *info_merge(av_list_t *list, const av_list_t *defaults);  // adds what `list` does not set
av_list_t *info_strip(av_list_t *list, const av_list_t *defaults);  // drops what says the same

int info_write(FILE *file, const av_list_t *list);        // one section; 1 or 0
int info_write_list(FILE *file, const av_list_t *table);  // every section, in order; 1 or 0
int info_rewind(FILE *file);                              // 1 or 0

// 1 when the file was modified after `mtime`; 0 also when it cannot be asked (info_error() not 0).
int info_stale(const struct timespec &mtime, const char *path);

// Closes and frees all three (each may be null), sets them to null and forgets the error stream.
void info_close(FILE **file, av_list_t **list_a, av_list_t **list_b);

// 0, 1 failure, 2 null file, 3 null list, 4 null key, else a system error number. Opening, closing and
// asking for staleness set it anew; the others only when they fail.
int info_error();

// Stores the sum of all name and value characters as signed bytes.
void info_set_check_value(av_list_t *list);

// The next section as it stands in the file; null at the end or on failure (parse_error() not 0).
av_list_t *get_row(FILE *file);
int parse_error();

const char *info_parse_value(const char *text);     // what a value means; static buffer of 512 bytes
const char *info_unparse_value(const char *value);  // how a value is written; another one

}  // namespace faxtray
