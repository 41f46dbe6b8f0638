// inbox_lists: the daemon's users, inboxes and forwarders, kept up to date with USER_LIST.info and
// MODEMS.info.
#pragma once

#include <ctime>

#include "config/av_table.h"
#include "inbox/forwarders.h"
#include "inbox/user_node.h"

namespace faxtray {

struct user_list_t {
    time_t loaded = 0;     // when it was last loaded; for the fax system's other programs
    av_table_t users;      // every entry but "default", keyed by name; "admin" first
    av_table_t metausers;  // "default" and "admin"
    recipients_t recipients;
    u_int check_value = 0;   // of users and recipients together; never 0 once loaded
    bool from_file = false;  // as it was last loaded; else it holds the built-in records only
    bool complete = false;   // this list and the incoming inboxes have been loaded once
    bool unsettled = false;  // it was loaded, and inboxes and forwarders do not follow it yet
};

extern inbox_list_t users;     // one node for each user with inbox delivery
extern inbox_list_t incoming;  // one node for each incoming directory
extern user_list_t User_list;
extern av_table_t Forwarder;  // designated forwarders

// Brings the lists, and `Forwarder` with them, up to date; the files (null or "": the ones that find_file
// finds) are read only if one of them has changed. Nodes of users whose entry is unchanged stay, with their
// faxes, marks and fax ids. Kept: so do nodes of users who are no longer in the file, until the daemon ends;
// clients that read such an inbox are not cut off. Incoming nodes are replaced.
//
// While somebody is writing one of the files all lists stay as they are. A list whose file is missing or
// cannot be read stays too; without a user list at the start the built-in records serve.
//
// Returns 1, or 0 on failure with messages; a failure that lasts is reported once a change of the file, and
// the lists then count as current. Until both files have been read once, and while there is no memory for
// what they hold, returns 0, and every call tries again.
int update_lists(inbox_list_t *users, inbox_list_t *incoming, user_list_t *user_list, const char *user_path,
                 const char *modem_path);

// The same for the lists above and the files of options -U and -M.
int update_lists();

// The same in two steps, for the start: the files, whether or not they have changed; then the users' inboxes
// and the forwarders. In between, the directory below which the inboxes are created can be made.
int read_lists();
int settle_users();

// The steps of update_lists: each reads one file. They return 1, or 0 with a message; the list then stays.
int load_user_list(user_list_t *user_list, const char *path);
int load_incoming_list(inbox_list_t *incoming, const char *path);

// The inbox of a user; creates its directory if there is none. The caller owns the node; null on failure,
// which is logged.
user_node_t *create_user_node(const av_list_t *user);

}  // namespace faxtray
