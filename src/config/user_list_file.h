// user_list_file: USER_LIST.info, the administrator's list of fax users. One open file per process.
//
// Two sections are not users: "default" holds what every user's section leaves out, over the built-in
// defaults; "admin" holds the administrator's settings, over built-in ones. Both are rebuilt at every open;
// without a file they hold the built-in values.
#pragma once

#include <cstdio>
#include <ctime>

#include "config/av_list.h"
#include "config/info_source.h"

namespace faxtray {

// Reads `path`, or with null or "" the file that find_file finds, if nobody is writing it. The next ui_open
// takes what was read; ui_close drops it. Prints nothing.
list_look_t ui_look(const char *path);

// `path`, or without one the places where find_file looks, for messages. Static buffer.
const char *ui_location(const char *path);

// Opens `path`, or with null or "" the file that find_file finds, after closing what was open; without a
// ui_look before, it is read now. Messages go to `error_stream` until ui_close (null: none). Returns 1, also
// if there is no file (ui_error() is then not 0), or 0 when out of memory.
int ui_open(const char *path, FILE *error_stream);

// A user's settings over the defaults; the name is matched loosely. "admin" and "default" (exactly) return
// those records; null returns the next section of the file. The caller frees the list. Null at the end or if
// there is none (ui_error() is 0), or on failure.
av_list_t *ui_get(const char *name);

// The same as written in the file; "default" returns what differs from the built-in defaults.
av_list_t *ui_get_no_defaults(const char *name);

int ui_rewind();  // to the first section; returns 1 or 0

// 1 if the file was modified after it was last opened, or exists and could not be opened then; else 0.
int ui_stale(const char *path);
void ui_forget();                         // the file counts as stale until it is opened again
time_t ui_last_update(const char *path);  // the file's modification time; 0 on failure

void ui_close();
int ui_error();  // of the last call; INFO_NOT_OPEN also if the file was not found (see info_file)

// ui_last_update is for the fax system's other programs; none here calls it.

// The directory-safe form of a name: a-z, 0-9, "-" and "_" are kept, A-Z become lower case, all else is
// dropped, so the result may be empty. The caller frees it. Null for a null name or when out of memory.
char *ui_map_name(const char *name);

// The absolute inbox directory of a user's entry: delivery_dir, or the mapped name, under delivery_dir_root.
// The disk is not looked at. The caller frees the path. Null with a message on failure.
char *ui_inbox_path(const av_list_t *entry);

}  // namespace faxtray
