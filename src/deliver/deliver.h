// deliver: hands one received fax to one recipient, as the recipient's entry asks: into an inbox, by mail or
// to a command.
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
// of the delivery and where the fax went. `keepalive` may be null; `did` is the number called, 0 when not
// known.
int deliver_fax(const av_list_t *record, const char *fax_path, char *message_out, char *destination_out,
                void (*keepalive)(), int did);

// The steps, with the same results. `path` is a buffer of MAXPATHLEN bytes, which may get a new name.
int format_fax_file(const av_list_t *record, char *path, void (*keepalive)());
int change_file_name(const av_list_t *record, char *path);
int route_fax_file(const av_list_t *record, const char *path, char *destination_out);
int exec_deliver(const av_list_t *record, const char *path, char *destination_out);

}  // namespace faxtray
