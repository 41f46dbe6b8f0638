// deliver: hands one received fax to one recipient, as the recipient's entry asks: into an inbox, by mail or
// to a command.
//
// Works on a copy beside the fax, "NAMEn_.fax", which goes when the delivery ends and which a note in the
// work directory names meanwhile (work_note.h).
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

// `fax_path` is never changed. `message_out` and `destination_out` (4096 bytes each, or null) get the account
// of the delivery, one or two lines, and where the fax went: a path, the command's delivery_dir_root, or the
// name of the copy that was worked on. `keepalive` may be null; `did` is the number called, 0 when not known.
int deliver_fax(const av_list_t *record, const char *fax_path, char *message_out, char *destination_out,
                void (*keepalive)(), int did);

// The steps, with the same results. `path` is a buffer of MAXPATHLEN bytes, which may get a new name; what
// convert.h says of names holds for it. What cannot be done is traced or logged.

// Re-codes or converts the file as delivery_file_format asks. No file is replaced.
int format_fax_file(const av_list_t *record, char *path, void (*keepalive)());

// Makes the last component one that delivery_naming asks for; the file itself is not touched. "" when that
// does not fit.
int change_file_name(const av_list_t *record, char *path);

// Publishes the file (publish.h) in the recipient's inbox; `destination_out` gets the name used.
int route_fax_file(const av_list_t *record, const char *path, char *destination_out);

// Runs the command with the path and delivery_dir_root as arguments and the entry on its standard input. A
// command that a signal ends counts as having succeeded.
int exec_deliver(const av_list_t *record, const char *path, char *destination_out);

}  // namespace faxtray
