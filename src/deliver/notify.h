// notify: tells a user about an event by mail, if the user's entry asks for that.
#pragma once

#include "config/av_list.h"

namespace faxtray {

// `event` is a value handle of when_to_notify. Returns 1 if the user was notified or does not want to be, or
// 0 with a trace line on an error or if the entry names no usable means. A null subject or message is
// replaced by a default.
int notify(const av_list_t *record, const char *subject, const char *message, int event);

// The same for a user by name, whose record is fetched from the registry. This and the next are for the fax
// system's other programs; none here calls them.
int notify_uname(const char *user_name, const char *subject, const char *message, int event);

// A job's control file, as far as notices are concerned.
struct control_file_t {
    int suppress;         // 1: no notices
    const char *address;  // who is notified; null, "" or "(None)": the owner, as the owner's entry asks
    const char *owner;
    int (*cfile_rev)(const control_file_t *);  // the revision check; 0: no notices
};
// Notifies whom the control file names. Returns 1, or what notify_uname returns.
int notify_cfile_user(const control_file_t *control_file, const char *subject, const char *message,
                      int event);

}  // namespace faxtray
