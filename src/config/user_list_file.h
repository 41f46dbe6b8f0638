// user_list_file: USER_LIST.info, the administrator's list of fax users. One open file per process.
#pragma once

#include <cstdio>
#include <ctime>

#include "config/av_list.h"

namespace faxtray {

int ui_open(const char *path, FILE *error_stream);  // null or "": search; 1 without a file too (ui_error())
av_list_t *ui_get(const char *name);                // null: the next section; caller frees
av_list_t *ui_get_no_defaults(const char *name);
int ui_rewind();
int ui_stale(const char *path);
time_t ui_last_update(const char *path);
void ui_close();
int ui_error();                               // 0, 1 failure, 2 not found or not open, else errno
char *ui_map_name(const char *name);          // directory-safe form; caller frees
char *ui_inbox_path(const av_list_t *entry);  // absolute inbox directory; caller frees

}  // namespace faxtray
