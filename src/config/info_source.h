// info_source: what USER_LIST.info and MODEMS.info have in common: an open info file, built-in defaults and
// the file's "default" section over them. user_list_file and modem_list_file hold one each.
//
// Every function reports on the source's error stream, in messages that begin with its prefix, and sets its
// error number (see info_file).
#pragma once

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "config/av_list.h"
#include "config/info_file.h"
#include "config/steady_copy.h"

namespace faxtray {

// What looking at a list's file has found.
struct list_look_t {
    // 0: it was read, and the next open takes what was read. EBUSY: somebody is writing it. Otherwise the
    // reason why it cannot be read; ENOENT if there is none.
    int error;
    // Whether this is worth a line in the log: of a file that is being written, once a writer, 30 seconds
    // after the first such look or after the file's last change; of one that cannot be read, unless the last
    // open failed for the same reason and the file has not been modified since.
    bool news;

    // Whether what was read before goes on serving, silently.
    bool is_no_news() const { return error == EBUSY || (error != 0 && !news); }
};

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

    steady_copy_t read = {};       // by the last look, for the next open
    int read_error = -1;           // of that look; -1: there is none to take
    struct stat last = {};         // of the file last opened
    int failure = 0;               // why the last open could not read the file, 0 if it could
    struct timespec failed = {};   // that file's mtime
    time_t written_since = 0;      // when the first look found the file being written; 0: the last did not
    bool writer_reported = false;  // as news
};

// Reads the file, for the next source_open_file.
list_look_t source_look(info_source_t &source, const char *path);

// `path`, or without one the places where the list is looked for, for messages. Static buffer.
const char *source_location(const info_source_t &source, const char *path);

// Closes what was open and takes the list that `build` returns, null on failure, as the built-in defaults.
// Returns 1 or 0; the source is closed after a failure.
int source_reset(info_source_t &source, FILE *error_stream, av_list_t *(*build)());

// Opens `path`, or with null or "" the file that find_file finds, as the last source_look has read it; it is
// read now if there was no look since the last open. False if there is none; the built-in defaults then
// remain in force.
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
