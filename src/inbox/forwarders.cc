// Rights come from what the claims of the user list have led to.
#include "inbox/forwarders.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "config/attributes.h"
#include "config/av_list.h"
#include "config/forwarder_claims.h"
#include "config/user_settings.h"
#include "inbox/messages.h"
#include "log/report.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

// The incoming inbox of that description, as munged_strcmp compares; null if there is none.
static const user_node_t *find_incoming(const inbox_list_t *incoming, const char *description)
{
    for (const user_node_t *node = incoming->head; node; node = node->next)
        if (node->description && munged_strcmp(node->description, description) == 0)
            return node;
    return nullptr;
}

int update_forwarder(av_list_t *user, av_table_t *forwarders, const inbox_list_t *incoming)
{
    return claim_inboxes(user, forwarders, [incoming](const char *description) {
        const user_node_t *node = find_incoming(incoming, description);
        return node ? inbox_name(node) : nullptr;
    });
}

// Also true for "", which then matches no handle.
static bool is_hexadecimal(const char *text)
{
    return text[strspn(text, "0123456789abcdefABCDEF")] == '\0';
}

int is_forwarder(const av_table_t *forwarders, const char *user, const char *inbox, err_t *error)
{
    const char *name = shown(user);
    const av_list_t *entry = user ? forwarders->get(user) : nullptr;
    if (!entry)
        return refuse(error, IE_NOT_DF, 0, "Trayd: User \"%s\" is not designated forwarder.", name);
    if (!inbox)
        return 1;
    // No handle can look like this, so the client has sent something else, such as a path.
    if (!is_hexadecimal(inbox))
        return refuse(error, IE_BAD_RECIPIENT, 0, "Trayd: Invalid inbox: [%s].", inbox);

    const char *assigned = av_getv(entry, assigned_handles);
    if (is_empty(assigned)) {
        report("is_forwarder: NULL %s value for DF: [%s].\n", assigned_handles, name);
        return refuse(error, IE_NOT_DF, 0, "Trayd: User \"%s\" is not designated forwarder.", name);
    }
    c_string handles(strdup(assigned));
    if (!handles) {
        int cause = errno;
        return refuse(error, IE_SYSTEM, cause, "Trayd: is_forwarder: strdup: %s.", strerror(cause));
    }
    char *rest = handles.get();
    while (const char *handle = next_name(&rest)) {
        trprintf("is_forwarder: comparing \"%s\" to \"%s\".\n", handle, inbox);
        if (strcmp(handle, inbox) == 0)
            return 1;
    }
    return refuse(error, IE_NOT_DF, 0, "Trayd: User \"%s\" is not DF for inbox: [%s].", name, inbox);
}

int recips_list_update(recipients_t *recipients, const av_list_t *user)
{
    // Without a name nobody can be chosen; the user list refuses such an entry, too.
    if (is_empty(user->key) || munged_strcmp(user->key, "admin") == 0 || !takes_forwarded_faxes(user))
        return 1;

    // People are shown a label; a group has one of its own.
    bool is_group = as_get_av_node(AS_GROUP, user);
    std::unique_ptr<ui_entry_t, deleter<free_ui_entry>> entry(
        new_ui_entry(user->key, av_getv(user, is_group ? "group_gui" : "human_name"), is_group));
    if (!entry) {
        report("recips_list_update: new_ui_entry failure.\n");
        return 0;
    }
    try {
        if (recipients->insert(entry.get()))
            (void)entry.release();
        else
            fprintf(stderr, "recips_list_update: Ignoring duplicate key: [%s].\n", user->key);
    } catch (const std::bad_alloc &) {
        report("recips_list_update: new_ui_entry failure.\n");
        return 0;
    }
    return 1;
}

ui_entry_t *new_ui_entry(const char *name, const char *label, int is_group)
{
    auto *entry = static_cast<ui_entry_t *>(calloc(1, sizeof(ui_entry_t)));
    if (!entry) {
        fprintf(stderr, "new_ui_entry: malloc: %s.\n", strerror(errno));
        return nullptr;
    }
    entry->name = strdup(name ? name : "");
    entry->label = strdup(label ? label : "");
    entry->flag = is_group;
    if (!entry->name || !entry->label) {
        fprintf(stderr, "new_ui_entry: strdup: %s.\n", strerror(ENOMEM));
        free_ui_entry(entry);
        return nullptr;
    }
    return entry;
}

void free_ui_entry(ui_entry_t *entry)
{
    while (entry) {
        ui_entry_t *next = entry->next;
        free(entry->name);
        free(entry->label);
        free(entry);
        entry = next;
    }
}

void free_recipients(recipients_t *recipients)
{
    free_ui_entry(recipients->release());
}

}  // namespace faxtray
