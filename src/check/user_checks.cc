// Whatever concerns one line by itself is found in settings_check; here are the things that several lines,
// sections or files together come to.
#include "check/user_checks.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "config/attributes.h"
#include "config/forwarder_claims.h"
#include "config/munged_name.h"
#include "config/user_settings.h"
#include "util/text.h"

namespace faxtray {

bool is_group(const av_list_t *user)
{
    return as_get_av_node(AS_GROUP, user) != nullptr;
}

static bool is_mail(int method)
{
    return method == IV_DELIVERY_METHOD_EMAIL_BODY || method == IV_DELIVERY_METHOD_MIMEMAIL_ATTACH ||
           method == IV_DELIVERY_METHOD_SUNMAIL_ATTACH;
}

static bool has_address(const av_list_t *user)
{
    return !is_empty(av_getv(user, as_get_attr(AS_EMAIL_ADDRESS)));
}

static const char *method_of(const av_list_t *user)
{
    const char *method = av_getv(user, as_get_attr(AS_DELIVERY_METHOD));
    return method ? method : "";
}

// The value handle of the method's keyword, -1 for none.
static int keyword_of(const av_list_t *user)
{
    std::string method = method_of(user);
    return as_get_value_handle(AS_DELIVERY_METHOD, cut_keyword(method.data()));
}

static bool has_command(const av_list_t *user)
{
    const char *command = command_text(method_of(user));
    return command && command[strspn(command, " \t")];
}

int delivery_of(const av_list_t *user)
{
    const int method = keyword_of(user);
    const bool possible = !is_group(user) && (!is_mail(method) || has_address(user)) &&
                          (method != IV_DELIVERY_METHOD_EXEC || has_command(user));
    return possible ? method : -1;
}

namespace {

// One user, for the checks below.
struct subject_t {
    const seen_users_t &list;
    const av_list_t *user;
    const seen_section_t *section;  // null: the administrator without one
    problems_t &problems;

    place_t here() const { return list.at(section ? section->line : 0); }
    place_t at(const char *attribute) const { return list.place_of(section, attribute); }
};

}  // namespace

// Names

// Sections that the daemon takes for others than their names say, or not at all.
static void check_section_names(const seen_users_t &list, problems_t &problems)
{
    std::map<std::string, const seen_section_t *> names;  // by munged name
    for (const seen_section_t &section : list.sections) {
        const place_t place = list.at(section.line);
        const char *key = section.key.c_str();
        if (!*key)
            problems.add(trap("empty-name"), place);
        else if (section.key == "default" || section.key == "admin") {
            const seen_section_t *first = *key == 'd' ? list.default_section : list.admin_section;
            if (first != &section)
                problems.add(trap("second-section"), place, {key, std::to_string(first->line)});
        } else if (is_special_name(key))
            problems.add(trap("not-special"), place,
                         {key, munged_strcmp(key, "admin") == 0 ? "admin" : "default"});
        else if (!equals_itself(key))
            problems.add(trap("name-end"), place, {key});
        else if (auto [same, added] = names.try_emplace(munged_key(key), &section); !added) {
            problems.add(trap("same-user"), place,
                         {key, same->second->key, std::to_string(same->second->line)});
            same->second = &section;
        }
        if (section.key.find(',') != section.key.npos)
            problems.add(trap("comma-in-name"), place, {key});
        if (strncmp(key, "__", 2) == 0)
            problems.add(trap("raw-section"), place);
    }
}

// Delivery and notices

static void check_delivery(const subject_t &s)
{
    const char *const method_attr = as_get_attr(AS_DELIVERY_METHOD);
    const int method = keyword_of(s.user);
    const bool inbox = takes_inbox_delivery(s.user);
    if (inbox && is_empty(av_getv(s.user, "password")))
        s.problems.add(trap("no-password"), s.here(), {s.user->key});
    if (is_empty(method_of(s.user)) && strcmp(s.user->key, "admin") != 0)
        s.problems.add(trap("no-method"), s.at(method_attr), {s.user->key});
    if (is_mail(method) && !has_address(s.user))
        s.problems.add(trap("mail-without-address"), s.here(), {s.user->key});
    if (method == IV_DELIVERY_METHOD_EXEC && !has_command(s.user))
        s.problems.add(trap("exec-without-command"), s.at(method_attr));
    if (method == IV_DELIVERY_METHOD_EXEC && inbox)
        s.problems.add(trap("exec-with-inbox"), s.at(method_attr), {s.user->key});
}

// Notices that somebody has asked for: the built-in settings ask for some on behalf of all.
static void check_notices(const subject_t &s)
{
    const char *const when_attr = as_get_attr(AS_WHEN_TO_NOTIFY);
    const char *when = av_getv(s.user, when_attr);
    const seen_section_t *defaults = s.list.default_section;
    const bool asked = (s.section && s.section->find(when_attr)) ||
                       (defaults && defaults->find(when_attr) && strcmp(s.user->key, "admin") != 0);
    if (asked && !is_empty(when) && !strstr(when, "never") && !has_address(s.user))
        s.problems.add(trap("notices-without-address"), s.at(when_attr), {s.user->key});
}

// Whether what the administrator wants to hear of the exception log can be sent.
static void check_admin(const subject_t &s)
{
    const int level = as_get_value_handle_av(AS_ADMIN_NOTIFY_LEVEL, s.user);
    if (level < 0 || level == IV_NOTIFY_LEVEL_NONE)
        return;
    const char *when = av_getv(s.user, as_get_attr(AS_WHEN_TO_NOTIFY));
    const char *reason = nullptr;
    if (!when || strstr(when, "never"))
        reason = "when_to_notify is never";
    else if (!strstr(when, as_get_value_string(AS_WHEN_TO_NOTIFY, IV_WHEN_TO_NOTIFY_FAX_EXCEPTION)))
        reason = "when_to_notify does not name fax_exception";
    else if (!has_address(s.user))
        reason = "admin has no email_address";
    if (reason)
        s.problems.add(trap("admin-without-notices"), s.at(as_get_attr(AS_ADMIN_NOTIFY_LEVEL)), {reason});
}

// Groups

static std::vector<std::string> members_of(const char *value)
{
    char **fields = nullptr;
    const int count = split(value, ',', &fields);
    const std::unique_ptr<char *, deleter<std::free>> owner(fields);
    return count > 0 ? std::vector<std::string>(fields, fields + count) : std::vector<std::string>();
}

static void check_member(const subject_t &s, const std::string &name, const place_t &place)
{
    const av_list_t *member = name.empty() ? nullptr : s.list.users.get(name.c_str());
    const seen_section_t *section = member ? s.list.section_of(member) : nullptr;
    if (!member)
        s.problems.add(trap("unknown-member"), place, {name});
    else if (is_group(member))
        s.problems.add(trap("nested-group"), place, {name});
    else if (delivery_of(member) < 0)
        s.problems.add(trap("unserved-member"), place, {name, std::to_string(section ? section->line : 0)});
    else if (!takes_forwarded_faxes(member))
        s.problems.add(trap("hidden-member"), place, {name});
}

static void check_group(const subject_t &s)
{
    const place_t place = s.at(as_get_attr(AS_GROUP));
    const char *value = as_get_av_node(AS_GROUP, s.user)->value;
    if (is_empty(value))
        s.problems.add(trap("no-member"), place);
    std::set<std::string> seen;
    for (const std::string &member : members_of(is_empty(value) ? nullptr : value)) {
        check_member(s, member, place);
        if (!seen.insert(munged_key(member.c_str())).second)
            s.problems.add(trap("repeated-member"), place, {member});
    }
    if (takes_inbox_delivery(s.user))
        s.problems.add(trap("group-with-inbox"), s.here());
}

void check_users(const seen_users_t &list, problems_t &problems)
{
    if (!list.is_read)
        return;
    check_section_names(list, problems);
    for (const av_list_t *user = list.users.head(); user; user = user->next) {
        const subject_t s = {list, user, list.section_of(user), problems};
        if (is_group(user)) {
            check_group(s);
            continue;
        }
        check_delivery(s);
        check_notices(s);
        if (strcmp(user->key, "admin") == 0)
            check_admin(s);
    }
}

// Forwarders

namespace {

struct incoming_t {
    std::string name, directory;
    bool claimed;
    place_t place;
};

}  // namespace

// The incoming inboxes, one a directory. The first line of a directory gives it its name.
static std::vector<incoming_t> incoming_inboxes(const seen_modems_t &modems)
{
    std::vector<incoming_t> inboxes;
    std::set<std::string> directories;
    for (const seen_line_t &line : modems.lines) {
        const char *name = av_getv(line.entry.get(), "incoming_gui");
        const char *directory = av_getv(line.entry.get(), "incoming_dir");
        if (directories.insert(directory).second)
            inboxes.push_back({name ? name : "", directory, false, modems.at(line.section->line)});
    }
    return inboxes;
}

static incoming_t *find(std::vector<incoming_t> &inboxes, const char *name)
{
    for (incoming_t &inbox : inboxes)
        if (munged_strcmp(inbox.name.c_str(), name) == 0)
            return &inbox;
    return nullptr;
}

static void tell_claim(const subject_t &s, std::vector<incoming_t> &inboxes, claim_result result,
                       const char *name, const char *holder)
{
    const place_t place = s.at(claimed_names);
    switch (result) {
    case claim_result::GIVEN:
        find(inboxes, name)->claimed = true;
        break;
    case claim_result::TAKEN:
        s.problems.add(trap("claim-taken"), place, {name, holder});
        break;
    case claim_result::UNREAD:
        s.problems.add(trap("claim-ignored"), place, {name});
        break;
    case claim_result::UNKNOWN:
        s.problems.add(
            trap("claim-unknown"), place,
            {name, equals_itself(name) ? "" : ": a name that ends in a blank or punctuation equals none"});
        break;
    }
}

void check_forwarders(const seen_users_t &list, const seen_modems_t &modems, problems_t &problems)
{
    if (!list.is_read || !modems.is_read)
        return;
    std::vector<incoming_t> inboxes = incoming_inboxes(modems);
    const auto find_inbox = [&inboxes](const char *name) {
        const incoming_t *inbox = find(inboxes, name);
        return inbox ? inbox->directory.c_str() : nullptr;
    };
    av_table_t forwarders;
    for (const av_list_t *user = list.users.head(); user; user = user->next) {
        const subject_t s = {list, user, list.section_of(user), problems};
        const av_list_ptr copy(av_copy(user));
        claim_inboxes(copy.get(), &forwarders, find_inbox,
                      [&](claim_result result, const char *name, const char *holder) {
                          tell_claim(s, inboxes, result, name, holder);
                      });
        // What is left of the claims is what was not looked at at all.
        if (!is_empty(av_getv(copy.get(), claimed_names)) && !av_getv(copy.get(), assigned_handles))
            problems.add(trap("forwarder-without-inbox"), s.at(claimed_names), {user->key});
    }
    for (const incoming_t &inbox : inboxes)
        if (!inbox.claimed)
            problems.add(trap("unclaimed-inbox"), inbox.place, {inbox.name, inbox.directory});
}

}  // namespace faxtray
