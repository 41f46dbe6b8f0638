// info_file: an open info file (see info_lines for the format): its "default" section merged under every
// other, look-ups by key or section after section, staleness, and writing.
//
// Failures are reported on the stream given to info_open.
#pragma once

#include <cstdio>
#include <ctime>

#include "config/av_list.h"
#include "config/steady_copy.h"

namespace faxtray {

// What info_error(), ui_error() and mi_error() return, unless it is a system error number.
enum : int {
    INFO_OK = 0,
    INFO_FAILED = 1,
    INFO_NOT_OPEN = 2,  // no open file; of the two lists also: file not found
    INFO_NO_LIST = 3,   // info_write: null list
    INFO_NO_KEY = 4,    // info_write: null or empty key
};

// Opens `path` for reading, as a copy in memory: a file of ours that stays open must not look as if somebody
// were writing it (see steady_copy, also for what is refused). Its "default" section, merged over
// `*defaults`, replaces `*defaults` if there is one. `*mtime` is set to the file's modification time, 0 on
// failure. Messages go to `error_stream` from here to info_close (null: none). Returns null on failure.
FILE *info_open(const char *path, av_list_t **defaults, struct timespec *mtime, FILE *error_stream);

// The same for a file that was read before, with read_steady's result.
FILE *info_open_copy(const char *path, int error, steady_copy_t copy, av_list_t **defaults,
                     struct timespec *mtime, FILE *error_stream);

// The section with that key, or with a null or empty key the next one, merged over `defaults` (may be null).
// The caller frees it. Null at the end or if there is none (info_error() is left as it was), or on failure
// (info_error() is not 0).
av_list_t *info_get(FILE *file, const av_list_t *defaults, key_compare cmp, const char *key);

// Both change `list` itself and return it, with a new check value. Null on failure; the caller then still
// owns `list`.
av_list_t *info_merge(av_list_t *list, const av_list_t *defaults);  // adds what `list` does not set
av_list_t *info_strip(av_list_t *list, const av_list_t *defaults);  // removes what equals a default

// Write one section, or every section of a table in order. Return 1 or 0. For the fax system's other
// programs; none here calls them.
int info_write(FILE *file, const av_list_t *list);
int info_write_list(FILE *file, const av_list_t *table);

int info_rewind(FILE *file);  // to the first section; returns 1 or 0

// 1 if the file was modified after `mtime`; 0 also if its status cannot be read (info_error() is then not 0).
int info_stale(const struct timespec &mtime, const char *path);

// Closes the file and frees the lists (each may be null), sets all three to null and forgets the error
// stream.
void info_close(FILE **file, av_list_t **list_a, av_list_t **list_b);

// One of the numbers above or a system error number. info_open, info_close and info_stale reset it; the
// others only set it when they fail.
int info_error();

// Stores the sum of all characters of names and values, taken as signed bytes, as the check value.
void info_set_check_value(av_list_t *list);

}  // namespace faxtray
