// modem_list_file: MODEMS.info, the administrator's list of fax lines. One open file per process.
#pragma once

#include <cstdio>
#include <ctime>

#include "config/av_list.h"

namespace faxtray {

int mi_open(const char *path, FILE *error_stream);  // null or "": search; 1 without a file too (mi_error())
av_list_t *mi_get(const char *name);                // null: the next section; caller frees
av_list_t *mi_get_no_defaults(const char *name);
int mi_rewind();
int mi_stale(const char *path);
time_t mi_last_update(const char *path);
void mi_close();
int mi_error();  // 0, 1 failure, 2 not found or not open

}  // namespace faxtray
