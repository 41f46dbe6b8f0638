// info_source: what USER_LIST.info and MODEMS.info have in common: an open info file, built-in defaults and
// the file's "default" section over them. user_list_file and modem_list_file hold one each.
//
// Every function reports on the source's error stream, in messages that begin with its prefix, and sets its
// error number (see info_file).
#pragma once

#include <cstdio>
#include <ctime>

#include "config/av_list.h"
#include "config/info_file.h"

namespace faxtray {

struct info_source_t {
    const char *file_name;  // which find_file looks for
    const char *prefix;     // of the list's functions
    const char *subject;    // what its entries are, for messages
    const char *title;      // the same at the beginning of a sentence

    FILE *fp = nullptr;
    FILE *Error_fp = nullptr;            // where failures are reported; null: nowhere
    av_list_t *init_defaults = nullptr;  // the built-in defaults
    av_list_t *defaults = nullptr;       // the file's "default" section over them
    int error = INFO_OK;
    struct timespec last_open = {};  // the file's mtime at the last open, 0 if that found no file
};

// Closes what was open and takes the list that `build` returns, null on failure, as the built-in defaults.
// Returns 1 or 0; the source is closed after a failure.
int source_reset(info_source_t &source, FILE *error_stream, av_list_t *(*build)());

// Opens `path`, or with null or "" the file that find_file finds. False if there is none; the built-in
// defaults then remain in force.
bool source_open_file(info_source_t &source, const char *path);

// A copy of the defaults, or with `stripped` only of what differs from the built-in ones. The caller frees
// it. Null on failure.
av_list_t *source_get_defaults(info_source_t &source, bool stripped);

// The section of that name, or with null the next one, over the defaults if wanted. The caller frees it. Null
// at the end or if there is none, with the error number left as it was, or on failure.
av_list_t *source_get_section(info_source_t &source, bool with_defaults, key_compare cmp, const char *name);

int source_rewind(info_source_t &source);  // to the first section; returns 1 or 0

// 1 if the file was modified after it was last opened, or exists and could not be opened then; else 0.
int source_stale(info_source_t &source, const char *path);
time_t source_last_update(info_source_t &source,
                          const char *path);  // the file's modification time; 0 on failure

// Keeps the error number and the time of the last open, which source_stale compares with.
void source_close(info_source_t &source);

}  // namespace faxtray
