// forwarders: who may act on which incoming inbox, and whom faxes may be forwarded to.
#pragma once

#include <map>
#include <string>

#include "config/av_table.h"
#include "inbox/user_node.h"

namespace faxtray {

// Users and groups that may receive forwarded faxes, ordered by name, each name once.
struct recipients_t {
    ui_entry_t *head = nullptr;
    std::multimap<std::string, ui_entry_t *, munged_less> by_name;
};

// Assigns the incoming inboxes that `user` claims and nobody holds yet; `user`'s entry then stands in
// `forwarders`, its "forwarder" and "forwarder_handle" holding what was assigned. 1, or 0 on failure.
int update_forwarder(av_list_t *user, av_table_t *forwarders, const inbox_list_t *incoming);

// 1 when `user` is a forwarder (and, with a handle, that of that inbox), else 0 with `error` filled.
int is_forwarder(const av_table_t *forwarders, const char *user, const char *inbox, err_t *error);

// Offers a user entry to the recipients; 1, or 0 when an entry cannot be made.
int recips_list_update(recipients_t *recipients, const av_list_t *user);

ui_entry_t *new_ui_entry(const char *name, const char *label, int is_group);
void free_ui_entry(ui_entry_t *entry);  // with every entry behind it
void free_recipients(recipients_t *recipients);

}  // namespace faxtray
