// The paths are those that the daemon would use; it makes the inboxes and their root by itself, but no
// parents of them.
#include "check/inbox_checks.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "config/attributes.h"
#include "config/user_list_file.h"
#include "config/user_settings.h"
#include "util/access.h"
#include "util/owned.h"
#include "util/paths.h"
#include "util/text.h"

namespace faxtray {

std::string directory_fault(const char *path)
{
    struct stat st;
    if (stat(path, &st) != 0)
        return errno == ENOENT ? "is missing" : std::string("cannot be used: ") + strerror(errno);
    if (!S_ISDIR(st.st_mode))
        return "is no directory";
    return check_access_stat(st, S_IFDIR, "rwx") ? "" : "cannot be read, written and searched";
}

// Why nothing can be made at `path`; "" if it can. `made` is a directory that the daemon makes itself.
static std::string parent_fault(const std::string &path, const std::string &made)
{
    std::string parent = path;
    dirname(parent.data());
    parent.resize(strlen(parent.c_str()));
    if (parent == made)
        return "";
    struct stat st;
    if (stat(parent.c_str(), &st) != 0)
        return "cannot be made, since " + parent + " is missing";
    return check_access_stat(st, S_IFDIR, "wx") ? "" : "cannot be made in " + parent;
}

// The same for a directory that the daemon makes if it is missing.
static std::string fault(const std::string &path, const std::string &made)
{
    const std::string found = directory_fault(path.c_str());
    return found == "is missing" ? parent_fault(path, made) : found;
}

namespace {

// What the inboxes are held against, and what has been found of them.
struct inboxes_t {
    const seen_users_t &list;
    problems_t &problems;
    bool on_disk;
    const std::set<std::string> &with_lists;   // directories that hold the lists
    std::set<std::string> incoming;            // identities of directories
    std::map<std::string, std::string> users;  // by the inbox's identity
    std::string root;                          // path of the defaults' root, "" if it has none
};

}  // namespace

// What two paths of one directory have in common: on the disk, links may lead to it.
static std::string identity(const char *path, bool on_disk)
{
    struct stat st;
    if (!on_disk || stat(path, &st) != 0)
        return path;
    return std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino);
}

static const char *setting(const av_list_t *user, int attr)
{
    const char *value = av_getv(user, as_get_attr(attr));
    return value ? value : "";
}

static bool depends_on_start(const av_list_t *user)
{
    return !is_full_path(setting(user, AS_DELIVERY_DIR)) &&
           !is_full_path(setting(user, AS_DELIVERY_DIR_ROOT));
}

// A path that is valid where it stands, and not when it is put together.
static void report_invalid(inboxes_t &all, const av_list_t *user, const place_t &place)
{
    if (is_valid_path(setting(user, AS_DELIVERY_DIR)) && is_valid_path(setting(user, AS_DELIVERY_DIR_ROOT)))
        all.problems.add(trap("invalid-inbox"), place, {user->key});
}

static void check_inbox(inboxes_t &all, const av_list_t *user)
{
    const seen_section_t *section = all.list.section_of(user);
    const place_t place = section && section->find(as_get_attr(AS_DELIVERY_DIR))
                              ? all.list.place_of(section, as_get_attr(AS_DELIVERY_DIR))
                              : all.list.at(section ? section->line : 0);
    const c_string path(ui_inbox_path(user));
    if (!path) {
        report_invalid(all, user, place);
        return;
    }
    if (section && section->find(as_get_attr(AS_DELIVERY_DIR_ROOT)) && depends_on_start(user))
        all.problems.add(trap("relative-root"),
                         all.list.place_of(section, as_get_attr(AS_DELIVERY_DIR_ROOT)));
    const std::string inbox = path.get(), same = identity(path.get(), all.on_disk);
    const c_string mapped(ui_map_name(user->key));
    if (!*setting(user, AS_DELIVERY_DIR) && mapped && !*mapped)
        all.problems.add(trap("inbox-is-root"), place, {user->key});
    if (auto [other, added] = all.users.try_emplace(same, user->key); !added)
        all.problems.add(trap("same-inbox"), place, {user->key, other->second, inbox});
    if (all.incoming.count(same))
        all.problems.add(trap("inbox-is-incoming"), place, {user->key, inbox});
    if (all.with_lists.count(inbox))
        all.problems.add(trap("lists-in-inbox"), place, {inbox});
    const std::string found = all.on_disk ? fault(inbox, all.root) : "";
    if (!found.empty())
        all.problems.add(trap("inbox-unusable"), place, {user->key, inbox, found});
}

// Returns the root's path, also if it cannot be used: its inboxes are then not reported one by one.
static std::string check_root(const seen_users_t &list, bool on_disk, problems_t &problems)
{
    const char *value = setting(list.defaults.get(), AS_DELIVERY_DIR_ROOT);
    const place_t place = list.place_of(nullptr, as_get_attr(AS_DELIVERY_DIR_ROOT));
    const c_string path(is_empty(value) ? nullptr : mkpath(value));
    if (!path) {
        problems.add(trap("root-unusable"), place, {value, "is no path"});
        return "";
    }
    if (!is_full_path(value))
        problems.add(trap("relative-root"), place);
    const std::string found = on_disk ? fault(path.get(), "") : "";
    if (!found.empty())
        problems.add(trap("root-unusable"), place, {path.get(), found});
    return path.get();
}

void check_inboxes(const seen_users_t &list, const seen_modems_t &modems,
                   const std::set<std::string> &with_lists, bool on_disk, problems_t &problems)
{
    if (!list.is_read)
        return;
    inboxes_t all = {list, problems, on_disk, with_lists, {}, {}, check_root(list, on_disk, problems)};
    for (const seen_line_t &line : modems.lines)
        all.incoming.insert(identity(av_getv(line.entry.get(), "incoming_dir"), on_disk));
    for (const av_list_t *user = list.users.head(); user; user = user->next)
        if (takes_inbox_delivery(user))
            check_inbox(all, user);
}

}  // namespace faxtray
