// forwarders: who may act on which incoming inbox, and whom faxes may be forwarded to.
#pragma once

#include "config/av_table.h"
#include "inbox/named_chain.h"
#include "inbox/user_node.h"
#include "protocol/records.h"

namespace faxtray {

inline const char *recipient_name(const ui_entry_t *entry)
{
    return entry->name;
}

// Users and groups that may receive forwarded faxes, ordered by name, each name once. `head` is the chain
// that goes to clients; free_recipients() it.
struct recipients_t : named_chain_t<ui_entry_t, recipient_name> {};

// Assigns to `user` the incoming inboxes that its "forwarder" claims and nobody holds yet. When it gets
// any, its "forwarder" and "forwarder_handle" hold what was assigned, as comma-separated descriptions and
// handles, and a copy of the entry joins `forwarders`; else it is left without "forwarder". 1, or 0 when
// memory is short.
int update_forwarder(av_list_t *user, av_table_t *forwarders, const inbox_list_t *incoming);

// 1 when `user` is a forwarder (and, with a handle, that of that inbox), else 0 with `error` filled
// (codes 5, 12, 19). A null `user` is nobody.
int is_forwarder(const av_table_t *forwarders, const char *user, const char *inbox, err_t *error);

// Adds `user` to the recipients when its entry asks for that; 1, or 0 when an entry cannot be made.
// The administrator's entry and a name that is there already are passed over.
int recips_list_update(recipients_t *recipients, const av_list_t *user);

// An entry with copies of both strings, or null with a message.
ui_entry_t *new_ui_entry(const char *name, const char *label, int is_group);
void free_ui_entry(ui_entry_t *entry);  // with every entry behind it; null is allowed
void free_recipients(recipients_t *recipients);

}  // namespace faxtray
