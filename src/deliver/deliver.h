// deliver: hands one received fax to one recipient, as the recipient's entry asks: into an inbox, by mail or
// to a command.
//
// Works on a copy beside the fax, "NAMEn_.fax", with the fax's permissions, which is removed when the
// delivery ends. Meanwhile a note in the work directory names it (work_note.h), so that the next start
// removes it after a crash.
#pragma once

#include "config/av_list.h"

namespace faxtray {

enum : int {
    DELIVERED = 0,
    DELIVERED_PROBLEM = 1,  // a problem fax: its name begins with "p"
    DELIVER_NO_METHOD = 2,
    DELIVER_BAD_ARGUMENT = 3,  // also a group, or no address
    DELIVER_NO_MEMORY = 4,
    DELIVER_FAILED = 5,
    DELIVER_COMMAND_FAILED = 6,
};

// The file at `fax_path` is never changed. `message_out` (4096 bytes, or null) gets one or two lines that say
// what became of the delivery; `destination_out` (likewise) where the fax went: a path, the command's
// delivery_dir_root, or the name of the copy that was worked on. `keepalive`, or null, is called during long
// work; `did` is the number that the sender dialled, 0 if not known. The daemon passes null and 0; both are
// for the fax system's other programs.
int deliver_fax(const av_list_t *record, const char *fax_path, char *message_out, char *destination_out,
                void (*keepalive)(), int did);

// The same for the fax that is open at `fd`, whatever is at `fax_path` by now.
int deliver_open_fax(int fd, const av_list_t *record, const char *fax_path, char *message_out,
                     char *destination_out);

// The steps, with the same results. `path` is a buffer of MAXPATHLEN bytes, which may get a new name; what
// convert.h says about names holds for it. Failures are traced or logged.

// Re-codes or converts the file as delivery_file_format asks. No other file is replaced.
int format_fax_file(const av_list_t *record, char *path, void (*keepalive)());

// Changes the last component of the name to what delivery_naming asks for, never to a name that begins with a
// dot, or all of it to "" if that does not fit. The file itself is not touched.
int change_file_name(const av_list_t *record, char *path);

// Publishes the file (publish.h), which keeps its permissions, in the recipient's inbox; `destination_out`
// gets the name used.
int route_fax_file(const av_list_t *record, const char *path, char *destination_out);

// Runs the command with the path and delivery_dir_root as arguments and the entry on its standard input. A
// command that is ended by a signal counts as having succeeded.
int exec_deliver(const av_list_t *record, const char *path, char *destination_out);

}  // namespace faxtray
