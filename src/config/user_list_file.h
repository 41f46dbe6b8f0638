// user_list_file: USER_LIST.info, the administrator's list of fax users. One open file per process.
//
// Two sections are no users: "default" holds what every user's section leaves out, over the built-in
// defaults; "admin" the administrator's settings, over built-in ones. Both are read at every open and
// stand, built-in, without a file too.
#pragma once

#include <cstdio>
#include <ctime>

#include "config/av_list.h"

namespace faxtray {

// Opens `path`, or with null or "" the file that find_file finds, after closing what was open. Messages
// go to `error_stream` until ui_close (null: none). 1, also without a file (ui_error() then is not 0);
// 0 without memory.
int ui_open(const char *path, FILE *error_stream);

// A user's settings over the defaults, the name matched loosely; "admin" and "default" (exact) give
// those records; null gives the next section of the file. The caller frees. Null at the end, when there
// is none (ui_error() 0) or on failure.
av_list_t *ui_get(const char *name);

// The same as written in the file; "default" gives what differs from the built-in defaults.
av_list_t *ui_get_no_defaults(const char *name);

int ui_rewind();  // to the first section; 1 or 0

// 1 when the file was modified after it was opened last, or is there and could not be opened last.
int ui_stale(const char *path);
time_t ui_last_update(const char *path);  // when the file was modified; 0 on failure

void ui_close();
int ui_error();  // of the last call: 0, 1 failure, 2 not found or not open, else a system error number

// The directory-safe form of a name: a-z, 0-9, "-" and "_" stay, A-Z become lower case, all else goes,
// so it may come out empty. The caller frees; null without memory or for a null name.
char *ui_map_name(const char *name);

// The absolute inbox directory of a user's entry, by text alone: delivery_dir, or the mapped name,
// under delivery_dir_root. The caller frees; null with a message.
char *ui_inbox_path(const av_list_t *entry);

}  // namespace faxtray
