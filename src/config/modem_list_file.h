// modem_list_file: MODEMS.info, the administrator's list of fax lines, one section per device. One open file
// per process.
//
// Every entry returned has an absolute, canonical incoming_dir and a check value of its content.
#pragma once

#include <cstdio>
#include <ctime>

#include "config/av_list.h"
#include "config/info_source.h"

namespace faxtray {

list_look_t mi_look(const char *path);      // as ui_look and
const char *mi_location(const char *path);  // ui_location

// Opens `path`, or with null or "" the file that find_file finds, after closing what was open; without an
// mi_look before, it is read now. Messages go to `error_stream` until mi_close (null: none). Returns 1, also
// if there is no file (mi_error() is then not 0) or if the incoming directory of its section "default" cannot
// be determined, or 0 without memory.
int mi_open(const char *path, FILE *error_stream);

// A device's settings over the defaults; the name is matched exactly. "default" returns the defaults; null
// returns the next section, skipping those whose incoming directory cannot be determined. The caller frees
// the list. Null at the end or if there is none (mi_error() is 0), or on failure.
av_list_t *mi_get(const char *name);

// The same without the defaults; "default" returns what differs from the built-in ones.
av_list_t *mi_get_no_defaults(const char *name);

int mi_rewind();  // to the first section; returns 1 or 0

// 1 if the file was modified after it was last opened, or exists and could not be opened then; else 0.
int mi_stale(const char *path);
void mi_forget();                         // the file counts as stale until it is opened again
time_t mi_last_update(const char *path);  // the file's modification time; 0 on failure

void mi_close();
int mi_error();           // of the last call; INFO_NOT_OPEN also if the file was not found (see info_file)
FILE *mi_error_stream();  // as given to mi_open; null when closed

// mi_get_no_defaults, mi_rewind and mi_last_update are for the fax system's other programs; none here calls
// them.

}  // namespace faxtray
