// A user's claims are read name by name, in the order of the list. Messages say update_forwarder, as which
// the room of the inboxes calls this.
#include "config/forwarder_claims.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "config/attributes.h"
#include "config/av_list.h"
#include "config/av_trace.h"
#include "log/report.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

char *next_name(char **rest)
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

// The same for all forwarders so far; of a name that is taken, `*holder` is whose it is.
static claim_t check_holders(const av_table_t *forwarders, const char *name, const char *claimant,
                             bool *split, const av_list_t **holder)
{
    for (*holder = forwarders->head(); *holder; *holder = (*holder)->next) {
        claim_t claim = check_holder(*holder, forwarders, name, claimant, split);
        if (claim != claim_t::unclaimed)
            return claim;
    }
    return claim_t::unclaimed;
}

static void tell(const claim_listener &listener, claim_result result, const char *name,
                 const char *holder = "")
{
    if (listener)
        listener(result, name, holder);
}

// Appends a name to a comma-separated list.
static void append(std::string *list, const char *name)
{
    if (!list->empty())
        *list += ',';
    *list += name;
}

// Collects those of the `claims` that `user` gets, and the handles of their inboxes. False without memory.
static bool assign(char *claims, const char *user, const av_table_t *forwarders,
                   const find_inbox_t &find_inbox, const claim_listener &listener, std::string *names,
                   std::string *handles)
{
    // Kept: once a holder's list has been read, no more claims are. So the first forwarder may get several
    // inboxes, and a later one at most the first of its list; sites name their forwarders accordingly.
    bool holder_was_split = false;
    while (!holder_was_split) {
        const char *name = next_name(&claims);
        if (!name)
            break;
        trprintf("user \"%s\" wants to be DF for incoming inbox \"%s\"\n", user, name);
        const av_list_t *holder = nullptr;
        claim_t claim = check_holders(forwarders, name, user, &holder_was_split, &holder);
        if (claim == claim_t::no_memory)
            return false;
        if (claim == claim_t::taken) {
            tell(listener, claim_result::TAKEN, name, holder->key);
            continue;
        }

        trprintf("incoming inbox \"%s\" is not currently assigned to a DF.\n", name);
        const char *handle = find_inbox(name);
        if (!handle) {
            trprintf("incoming inbox \"%s\" doesn't exist.\n", name);
            tell(listener, claim_result::UNKNOWN, name);
            continue;
        }
        trprintf("incoming DF inbox \"%s\" exists; assigning to user \"%s\".\n", name, user);
        append(names, name);
        append(handles, handle);
        tell(listener, claim_result::GIVEN, name);
    }
    while (const char *name = next_name(&claims))
        tell(listener, claim_result::UNREAD, name);
    return true;
}

// Stores what was assigned in the entry, in place of the claims, and adds a copy of it to the forwarders.
// False without memory. To claim what was assigned comes to the same, so that this may be done again.
static bool register_forwarder(av_list_t *user, av_table_t *forwarders, const char *names,
                               const char *handles)
{
    if (!av_put(user, claimed_names, names) || !av_put(user, assigned_handles, handles)) {
        report("update_forwarder: av_put failed.\n");
        return false;
    }
    av_list_ptr entry(av_copy(user));
    if (entry && forwarders->update(std::move(entry)))
        return true;
    report("update_forwarder: avl_update failed.\n");
    return false;
}

int claim_inboxes(av_list_t *user, av_table_t *forwarders, const find_inbox_t &find_inbox,
                  const claim_listener &listener)
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
    try {
        std::string names, handles;
        if (!assign(claims.get(), user->key, forwarders, find_inbox, listener, &names, &handles))
            return 0;
        if (!names.empty())
            return register_forwarder(user, forwarders, names.c_str(), handles.c_str());
        av_delete(user, claimed_names);
    } catch (const std::bad_alloc &) {
        report("update_forwarder: strdup(\"%s\"): %s.\n", claims.get(), strerror(ENOMEM));
        return 0;
    }
    return 1;
}

}  // namespace faxtray
