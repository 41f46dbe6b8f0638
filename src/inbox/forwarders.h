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
// that is sent to clients. Has no destructor: free_recipients() frees the entries.
struct recipients_t : named_chain_t<ui_entry_t, recipient_name> {};

// Assigns to `user` the inboxes of `incoming` that its "forwarder" claims and nobody holds yet: see
// claim_inboxes() in config/forwarder_claims.h. Returns 1, or 0 without memory: the claims are then still
// there.
int update_forwarder(av_list_t *user, av_table_t *forwarders, const inbox_list_t *incoming);

// Returns 1 if `user` is a forwarder (and, unless `inbox` is null, the forwarder of the inbox with that
// handle), else 0 with `error` filled (codes 5, 12, 19). A null `user` is no forwarder.
int is_forwarder(const av_table_t *forwarders, const char *user, const char *inbox, err_t *error);

// Adds `user` to the recipients if its "fax_forwarding" says so. The administrator, an empty name and one
// that is already there are skipped. Returns 1, or 0 without memory.
int recips_list_update(recipients_t *recipients, const av_list_t *user);

// An entry with copies of both strings, or null with a message.
ui_entry_t *new_ui_entry(const char *name, const char *label, int is_group);
void free_ui_entry(ui_entry_t *entry);  // with every entry after it; null is allowed
void free_recipients(recipients_t *recipients);

}  // namespace faxtray
