// faxtrayd is asked for the oldest fax, again and again, and never for a listing: what has been listed counts
// as shown, and the next "commit" of a client would remove faxes that nobody has seen.
#include "tools/expiry.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <set>

#include "check/seen_lists.h"
#include "client/client_session.h"
#include "client/output.h"
#include "config/forwarder_claims.h"
#include "config/munged_name.h"
#include "config/user_list_file.h"
#include "config/user_settings.h"
#include "disk/work_note.h"
#include "util/command_output.h"
#include "util/file_lock.h"
#include "util/process_tag.h"
#include "util/settings.h"
#include "util/short_hash.h"
#include "util/text.h"

namespace faxtray {

namespace fs = std::filesystem;

namespace {

// An inbox, and who may act on it.
struct expired_inbox_t {
    std::string name;  // as the command line has it
    login who;
    inbox_ref inbox;
    std::string path;  // of its directory
};

using inboxes_t = std::vector<expired_inbox_t>;

struct lists_t {
    seen_users_t users;
    seen_modems_t modems;

    // Of the incoming inbox with that handle, which is the hash of its path; "" if the daemon's list is
    // newer.
    std::string directory_of(const std::string &handle) const
    {
        for (const seen_line_t &line : modems.lines) {
            const char *path = av_getv(line.entry.get(), "incoming_dir");
            if (const char *hash = passwd(path); hash && handle == hash)
                return path;
        }
        return "";
    }
};

}  // namespace

static constexpr int patience = 25;  // seconds, for each answer

// "faxtray-expire: NAME: what". Returns `result` for the caller to return.
static expiry_result complain(const std::string &name, const std::string &what, expiry_result result)
{
    fprintf(stderr, "faxtray-expire: %s: %s\n", printable(name).c_str(), printable_lines(what).c_str());
    return result;
}

static expiry_result report_failure(const std::string &name, const client_failure &why)
{
    const bool answered = why.kind == client_failure::SERVER;
    return complain(name, why.message, answered ? expiry_result::FAILED : expiry_result::UNREACHABLE);
}

// Finding inboxes

// The list's password is the hash that clients send.
static login login_of(const av_list_t *user)
{
    const char *password = av_getv(user, "password");
    return {user->key, password ? password : "", 0};
}

// Whether the user may forward for an inbox of that name. Handles are hexadecimal, and stand in no list.
static bool may_forward_for(const av_list_t *user, const std::string &name)
{
    const char *claims = av_getv(user, claimed_names);
    if (is_empty(claims) || !takes_inbox_delivery(user))
        return false;
    const std::vector<std::string> names = comma_separated(claims);
    return name.find_first_not_of("0123456789abcdef") == name.npos ||
           std::any_of(names.begin(), names.end(), [&name](const std::string &claim) {
               return munged_strcmp(claim.c_str(), name.c_str()) == 0;
           });
}

// Adds the incoming inbox of that name, if somebody forwards for one, by asking faxtrayd as each who may.
static expiry_result add_incoming(const expiry_t &wish, const lists_t &lists, const std::string &name,
                                  inboxes_t &found)
{
    for (const av_list_t *user = lists.users.users.head(); user; user = user->next) {
        if (!may_forward_for(user, name))
            continue;
        const login who = login_of(user);
        inbox_client client(who, patience);
        std::vector<incoming_inbox> theirs;
        if (!client.connect(wish.host))
            return report_failure(name, client.failure());
        if (!client.get_df(&theirs)) {
            if (client.failure().code == IE_NOT_DF)  // all that the user claims is another's, or unknown
                continue;
            return report_failure(user->key, client.failure());
        }
        if (const std::string handle = handle_of(theirs, name); !handle.empty())
            found.push_back({name, who, handle, lists.directory_of(handle)});
    }
    return expiry_result::DONE;
}

// The word is a name, or "user:NAME" or "incoming:NAME" for names that are both.
static expiry_result add_inbox(const expiry_t &wish, const lists_t &lists, const std::string &word,
                               inboxes_t &found)
{
    const bool is_user = word.starts_with("user:"), is_incoming = word.starts_with("incoming:");
    const std::string name = is_user || is_incoming ? word.substr(word.find(':') + 1) : word;
    const size_t before = found.size();
    const av_list_t *user = is_incoming ? nullptr : lists.users.users.get(name.c_str());
    const c_string path(user && takes_inbox_delivery(user) ? ui_inbox_path(user) : nullptr);
    if (path)
        found.push_back({name, login_of(user), {}, path.get()});
    if (!is_user)
        if (const auto result = add_incoming(wish, lists, name, found); result != expiry_result::DONE)
            return result;
    // Two meanings are as bad as none: the wrong one would lose faxes.
    if (found.size() > before + 1)
        return complain(word, "both a user and an incoming inbox: put user: or incoming: before the name",
                        expiry_result::REFUSED);
    if (found.size() == before)
        return complain(word, "no user with an inbox, and no incoming inbox that anybody forwards for",
                        expiry_result::REFUSED);
    return expiry_result::DONE;
}

// Whether a daemon runs in the work directory: faxtrayd keeps a lock there as long as it lives.
static bool daemon_works_here()
{
    const std::string path = std::string(dvWork_dir) + "/trayd_lock." + host_name();
    const unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return fd && is_locked(fd.get());
}

static expiry_result find_inboxes(const expiry_t &wish, const std::vector<std::string> &names,
                                  inboxes_t &found)
{
    lists_t lists;
    problems_t problems;
    see_users(nullptr, problems, &lists.users);
    see_modems(nullptr, problems, &lists.modems);
    for (const seen_list_t *list :
         {static_cast<seen_list_t *>(&lists.users), static_cast<seen_list_t *>(&lists.modems)})
        if (!list->is_read)
            return complain(list->path, "it cannot be read: who am I, and what is ONDRIXHOME?",
                            expiry_result::REFUSED);
    for (const std::string &name : names)
        if (const auto result = add_inbox(wish, lists, name, found); result != expiry_result::DONE)
            return result;
    for (const expired_inbox_t &inbox : found)
        if (inbox.inbox && !daemon_works_here())
            return complain(dvWork_dir, "no faxtrayd works in this directory: say which it is, with -W",
                            expiry_result::REFUSED);
    return expiry_result::DONE;
}

// Removing faxes

static void print_fax(const expiry_t &wish, const expired_inbox_t &inbox, const std::string &name,
                      time_t mtime)
{
    printf("%s %s: %s, %s\n", wish.dry_run ? "would remove from" : "removed from",
           printable(inbox.name).c_str(), printable(name).c_str(), date_text(mtime).c_str());
}

static bool is_old(const expiry_t &wish, time_t mtime)
{
    return mtime > 0 && mtime < wish.before;  // no fax is of 1970: such a time is unknown
}

// What a dry run prints comes from the directory, since a listing has the effect told above.
static expiry_result look_at_inbox(const expiry_t &wish, const expired_inbox_t &inbox)
{
    std::set<std::pair<time_t, std::string>> old;
    std::error_code error;
    for (fs::directory_iterator at(inbox.path, error), end; !error && at != end; at.increment(error)) {
        const std::string name = at->path().filename();
        struct stat st;
        if (!name.starts_with('.') && !name.starts_with("ii_") && stat(at->path().c_str(), &st) == 0 &&
            S_ISREG(st.st_mode) && is_old(wish, st.st_mtime))
            old.emplace(st.st_mtime, name);
    }
    for (const auto &[mtime, name] : old)
        print_fax(wish, inbox, name, mtime);
    return error ? complain(inbox.name, inbox.path + ": " + error.message(), expiry_result::FAILED)
                 : expiry_result::DONE;
}

// faxtrayd drops a fax that it could not remove from its list, so that the next is the oldest, and finds it
// again once the list is empty.
static expiry_result expire_inbox(const expiry_t &wish, const expired_inbox_t &inbox)
{
    inbox_client client(inbox.who, patience);
    if (!client.connect(wish.host))
        return report_failure(inbox.name, client.failure());
    expiry_result worst = expiry_result::DONE;
    std::set<std::string> kept;  // names that could not be removed
    for (std::optional<fax_entry> fax;;) {
        if (!client.get_fax_info(inbox.inbox, &fax))
            return report_failure(inbox.name, client.failure());
        if (!fax || !is_old(wish, fax->mtime) || kept.count(fax->name) > 0)
            return worst;
        if (inbox.inbox && delivery_runs())
            return complain(inbox.name, "a delivery is running: what is left stays until the next run",
                            worst);
        if (client.commit_fax(inbox.inbox, fax->id)) {
            print_fax(wish, inbox, fax->name, fax->mtime);
            continue;
        }
        worst = report_failure(inbox.name, client.failure());
        if (worst == expiry_result::UNREACHABLE)
            return worst;
        kept.insert(fax->name);
    }
}

expiry_result expire(const expiry_t &wish, const std::vector<std::string> &inboxes)
{
    inboxes_t found;
    expiry_result worst = find_inboxes(wish, inboxes, found);
    if (worst != expiry_result::DONE)
        return worst;
    for (const expired_inbox_t &inbox : found)
        worst = std::max(worst, wish.dry_run ? look_at_inbox(wish, inbox) : expire_inbox(wish, inbox));
    return worst;
}

}  // namespace faxtray
