// modem_list_file: MODEMS.info, the administrator's list of fax lines, a section a device. One open
// file per process.
//
// Every entry handed out has an absolute, canonical incoming_dir and the check value of what it holds.
#pragma once

#include <cstdio>
#include <ctime>

#include "config/av_list.h"

namespace faxtray {

// Opens `path`, or with null or "" the file that find_file finds, after closing what was open. Messages
// go to `error_stream` until mi_close (null: none). 1, also without a file (mi_error() then is not 0);
// 0 when the defaults cannot be built.
int mi_open(const char *path, FILE *error_stream);

// A device's settings over the defaults, its name matched exactly; "default" gives the defaults; null
// gives the next section, passing over those whose incoming directory cannot be made out. The caller
// frees. Null at the end, when there is none (mi_error() 0) or on failure.
av_list_t *mi_get(const char *name);

// The same without the defaults; "default" gives what differs from the built-in ones.
av_list_t *mi_get_no_defaults(const char *name);

int mi_rewind();  // to the first section; 1 or 0

// 1 when the file was modified after it was opened last, or is there and could not be opened last.
int mi_stale(const char *path);
time_t mi_last_update(const char *path);  // when the file was modified; 0 on failure

void mi_close();
int mi_error();  // of the last call: 0, 1 failure, 2 not found or not open, else a system error number

FILE *mi_error_stream();  // as given to mi_open; null when closed

}  // namespace faxtray
