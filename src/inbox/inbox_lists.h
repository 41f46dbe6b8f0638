// inbox_lists: the daemon's users, inboxes and forwarders, kept in step with USER_LIST.info and
// MODEMS.info.
#pragma once

#include <ctime>

#include "config/av_table.h"
#include "inbox/forwarders.h"
#include "inbox/user_node.h"

namespace faxtray {

struct user_list_t {
    time_t loaded = 0;     // when it was last loaded
    av_table_t users;      // every entry but "default", keyed by name; "admin" first
    av_table_t metausers;  // "default" and "admin"
    recipients_t recipients;
    u_int check_value = 0;  // of users and recipients together; never 0 once loaded
};

extern inbox_list_t users;     // one node for each user with inbox delivery
extern inbox_list_t incoming;  // one node for each incoming directory
extern user_list_t User_list;
extern av_table_t Forwarder;  // designated forwarders

// Brings all lists, `Forwarder` with them, up to date; the files (null or "": searched for) are read only
// when one of them changed. Nodes of users whose entry is as it was stay, faxes, marks and ids; so do, until
// the daemon ends, nodes of users who are no longer in the file. Incoming nodes are made anew. 1, or 0 on
// failure with messages; the lists are then as the step that failed left them.
int update_lists(inbox_list_t *users, inbox_list_t *incoming, user_list_t *user_list, const char *user_path,
                 const char *modem_path);

// The same without asking whether a file changed: a first start makes the delivery root after the
// lists, so that inboxes below it can be made only now.
int reload_lists(inbox_list_t *users, inbox_list_t *incoming, user_list_t *user_list, const char *user_path,
                 const char *modem_path);

int load_user_list(user_list_t *user_list, const char *path);      // 1, or 0 with a message
int load_incoming_list(inbox_list_t *incoming, const char *path);  // 1, or 0 with a message
user_node_t *create_user_node(const av_list_t *user);  // makes its directory; the caller's; or null

}  // namespace faxtray
