// Each incoming inbox has at most one forwarder: the first user in the list to claim it.
#include "inbox/forwarders.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "config/attributes.h"
#include "config/av_list.h"
#include "config/av_trace.h"
#include "inbox/messages.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

// Attributes of a user's entry. The first holds what the user claims, later what it was given.
static constexpr char claimed_names[] = "forwarder";
static constexpr char assigned_handles[] = "forwarder_handle";

// Returns the next non-empty name of a comma-separated list, which is cut in place; null at its end.
static char *next_name(char **rest)
{
    char *name;
    do
        name = strsep(rest, ",");
    while (name && !*name);
    return name;
}

// Kept: the heading says "update_forwarders", as traces are searched for it.
static void trace_forwarders(const av_table_t *forwarders)
{
    trprintf("update_forwarders: Forwarders:\n");
    if (!tr_writing())
        return;
    for (const av_list_t *entry = forwarders->head(); entry; entry = entry->next)
        tr_av_printf(entry);
}

namespace {
enum class claim_t { unclaimed, taken, no_memory };
}

// Whether the forwarder `holder` has already been given the inbox `name`. Sets *split if it read the holder's
// list.
static claim_t check_holder(const av_list_t *holder, const av_table_t *forwarders, const char *name,
                            const char *claimant, bool *split)
{
    const char *held = av_getv(holder, claimed_names);
    if (is_empty(held)) {
        report("update_forwarder: NULL %s value for DF: [%s].\n", claimed_names, holder->key);
        // Kept: "%ul", which prints an "l" after the number; those who search traces search for it.
        trprintf("address in *pforwarders: [%ul].\n",
                 static_cast<unsigned>(reinterpret_cast<uintptr_t>(forwarders->head())));
        return claim_t::unclaimed;
    }

    c_string names(strdup(held));
    if (!names) {
        report("update_forwarder: strdup(\"%s\"): %s.\n", held, strerror(errno));
        return claim_t::no_memory;
    }
    *split = true;
    char *rest = names.get();
    while (const char *assigned = next_name(&rest)) {
        trprintf("update_forwarder: comparing \"%s\" to \"%s\".\n", assigned, name);
        if (munged_strcmp(assigned, name) == 0) {
            trprintf("update_forwarder: user \"%s\" is DF for \"%s\": user \"%s\" access denied.\n",
                     holder->key, name, claimant);
            return claim_t::taken;
        }
    }
    return claim_t::unclaimed;
}

// The same for all forwarders so far.
static claim_t check_holders(const av_table_t *forwarders, const char *name, const char *claimant,
                             bool *split)
{
    for (const av_list_t *holder = forwarders->head(); holder; holder = holder->next) {
        claim_t claim = check_holder(holder, forwarders, name, claimant, split);
        if (claim != claim_t::unclaimed)
            return claim;
    }
    return claim_t::unclaimed;
}

// The incoming inbox of that description, as munged_strcmp compares; null if there is none.
static const user_node_t *find_incoming(const inbox_list_t *incoming, const char *description)
{
    for (const user_node_t *node = incoming->head; node; node = node->next)
        if (node->description && munged_strcmp(node->description, description) == 0)
            return node;
    return nullptr;
}

// Appends a name to a comma-separated list.
static void append(std::string *list, const char *name)
{
    if (!list->empty())
        *list += ',';
    *list += name;
}

// Collects those of the `claims` that `user` gets, and the handles of their inboxes. False without memory.
static bool assign(char *claims, const char *user, const av_table_t *forwarders, const inbox_list_t *incoming,
                   std::string *names, std::string *handles)
{
    // Kept: once a holder's list has been read, no more claims are. So the first forwarder may get several
    // inboxes, and a later one at most the first of its list; sites name their forwarders accordingly.
    bool holder_was_split = false;
    while (!holder_was_split) {
        const char *name = next_name(&claims);
        if (!name)
            break;
        trprintf("user \"%s\" wants to be DF for incoming inbox \"%s\"\n", user, name);
        claim_t claim = check_holders(forwarders, name, user, &holder_was_split);
        if (claim == claim_t::no_memory)
            return false;
        if (claim == claim_t::taken)
            continue;

        trprintf("incoming inbox \"%s\" is not currently assigned to a DF.\n", name);
        const user_node_t *node = find_incoming(incoming, name);
        if (!node) {
            trprintf("incoming inbox \"%s\" doesn't exist.\n", name);
            continue;
        }
        trprintf("incoming DF inbox \"%s\" exists; assigning to user \"%s\".\n", name, user);
        append(names, name);
        append(handles, inbox_name(node));
    }
    return true;
}

// Stores what was assigned in the entry and adds a copy of it to the forwarders.
static void register_forwarder(av_list_t *user, av_table_t *forwarders, const char *names,
                               const char *handles)
{
    if (!av_put(user, claimed_names, names) || !av_put(user, assigned_handles, handles)) {
        report("update_forwarder: av_put failed.\n");
        return;
    }
    av_list_ptr entry(av_copy(user));
    if (!entry || !forwarders->update(std::move(entry)))
        report("update_forwarder: avl_update failed.\n");
}

int update_forwarder(av_list_t *user, av_table_t *forwarders, const inbox_list_t *incoming)
{
    trace_forwarders(forwarders);

    const char *claimed = av_getv(user, claimed_names);
    if (is_empty(claimed)) {
        trprintf("update_forwarder: user \"%s\" is not a DF.\n", user->key);
        return 1;
    }
    const char *method = av_getv(user, as_get_attr(AS_DELIVERY_METHOD));
    if (!method || strcmp(method, as_get_value_string(AS_DELIVERY_METHOD, IV_DELIVERY_METHOD_FAXTRAY)) != 0) {
        trprintf("%s: user \"%s\" is not an inbox user: delivery will be handled by other means.\n",
                 "update_forwarder", user->key);
        return 1;
    }

    c_string claims(strdup(claimed));
    if (!claims) {
        report("update_forwarder: strdup(\"%s\"): %s.\n", claimed, strerror(errno));
        return 0;
    }
    // From here on the attribute is what the user was given, which may be nothing.
    av_delete(user, claimed_names);
    try {
        std::string names, handles;
        if (!assign(claims.get(), user->key, forwarders, incoming, &names, &handles))
            return 0;
        if (!names.empty())
            register_forwarder(user, forwarders, names.c_str(), handles.c_str());
    } catch (const std::bad_alloc &) {
        report("update_forwarder: strdup(\"%s\"): %s.\n", claims.get(), strerror(ENOMEM));
        return 0;
    }
    return 1;
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

// Kept: only the first letter counts; site files say "y", "Yes", "true" or "T".
static bool takes_forwarded_faxes(const av_list_t *user)
{
    const char *answer = av_getv(user, "fax_forwarding");
    return answer && *answer && strchr("YyTt", *answer);
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
