// notify: tells a user of an event by mail, when the user's entry asks for that.
#pragma once

#include "config/av_list.h"

namespace faxtray {

// `event` is a value handle of when_to_notify. 1 when the user was told or does not want to be, 0 on error
// or without a means.
int notify(const av_list_t *record, const char *subject, const char *message, int event);

// The same for the user whose record the registry holds.
int notify_uname(const char *user_name, const char *subject, const char *message, int event);

// A job's control file, as far as notices are concerned.
struct control_file_t {
    int suppress;         // 1: no notices
    const char *address;  // "" or "(None)": the owner's own settings hold
    const char *owner;
    int (*cfile_rev)(const control_file_t *);  // 0: no notices
};
int notify_cfile_user(const control_file_t *control_file, const char *subject, const char *message,
                      int event);

}  // namespace faxtray
