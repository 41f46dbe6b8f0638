// One bad entry never keeps the others out: entries that cannot be used are reported and skipped. Only a file
// that cannot be read at all makes a refresh fail, once; after that the lists serve as they were.
#include "inbox/inbox_lists.h"

#include <endian.h>
#include <sys/param.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

#include "config/av_list.h"
#include "config/modem_list_file.h"
#include "config/user_list_file.h"
#include "config/user_settings.h"
#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "log/report.h"
#include "util/access.h"
#include "util/crc.h"
#include "util/paths.h"
#include "util/settings.h"
#include "util/short_hash.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

inbox_list_t users;
inbox_list_t incoming;
user_list_t User_list;
av_table_t Forwarder;

// The last message of this module.
static char message[MAXPATHLEN + 512];

// Writes the message to the exception log and standard error, as coming from source line `line`.
static void log_message(int line)
{
    const int length = static_cast<int>(strcspn(message, "\n"));  // an entry ends its line itself
    log_only({ELOG_WARNING, elog_file_and_stderr, __FILE__, line}, "%.*s", length, message);
}

// Reports a failure of a refresh in the trace and the exception log, and on standard error.
static void refresh_failure(int line, const char *format, ...) __attribute__((format(printf, 2, 3)));
static void refresh_failure(int line, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof message, format, args);
    va_end(args);
    trprintf("%s", message);
    log_message(line);
}

// One user's inbox

// Reports a failure of create_user_node, whose text is in `message`. Returns null.
static user_node_t *node_failure(int line)
{
    trprintf("%s: %s", Program, message);
    log_message(line);
    return nullptr;
}

// Whether stat(2) has failed for a reason that says nothing of the directory itself. Its inbox is then kept:
// requests are answered with an error until it can be read again, while an inbox that is left out stays out
// until the lists are edited.
static bool may_come_back(int error)
{
    return error != ENOENT && error != ENOTDIR && error != ELOOP && error != ENAMETOOLONG && error != EACCES;
}

// Makes sure that the inbox exists and can be used. False with the reason in `message`.
static bool prepare_directory(const char *inbox)
{
    struct stat st;
    bool exists = stat(inbox, &st) == 0;
    if (!exists && errno == ENOENT) {
        if (mkdir(inbox, 0777) < 0) {  // the umask decides who else may read it
            snprintf(message, sizeof message, "%s: mkdir(\"%s\",0777): %s\n", "create_user_node", inbox,
                     strerror(errno));
            return false;
        }
        exists = stat(inbox, &st) == 0;
    }
    if (exists ? check_access_stat(st, S_IFDIR, "rwx") : may_come_back(errno))
        return true;
    snprintf(message, sizeof message, "%s: Can't use directory [%s]: %s\n", "create_user_node", inbox,
             strerror(EACCES));
    return false;
}

user_node_t *create_user_node(const av_list_t *user)
{
    // Name and password as callers must give them, and the check value by which a changed entry is
    // recognised.
    pw_req_ptr identity(
        new_pw(user->key, av_getv(user, "password"), nullptr, 0, static_cast<u_int>(user->check_value)));
    if (!identity) {
        snprintf(message, sizeof message, "%s: new_pw failed.\n", "create_user_node");
        return node_failure(__LINE__);
    }
    c_string inbox(ui_inbox_path(user));
    if (!inbox) {
        snprintf(message, sizeof message, "%s: user [%s]: ui_inbox_path failed.\n", "create_user_node",
                 user->key);
        return node_failure(__LINE__);
    }
    if (!prepare_directory(inbox.get()))
        return node_failure(__LINE__);
    user_node_ptr node = new_user_node(inbox.get(), std::move(identity), nullptr);
    if (!node) {
        snprintf(message, sizeof message, "%s: malloc(): %s\n", "create_user_node", strerror(errno));
        return node_failure(__LINE__);
    }
    return node.release();
}

// USER_LIST.info

// CRC-32 (util/crc.h) over, for each user in order: the name's bytes, a zero byte, the entry's check value in
// four bytes, the highest first; then for each recipient: the name's bytes, a zero byte, the label's bytes, a
// zero byte, the flag in one byte. 1 instead of 0, which to clients means "not known".
static u_int list_check_value(const user_list_t &list)
{
    uint32_t crc = 0;
    auto add = [&crc](const void *bytes, size_t n) { crc = crc_rev_update(bytes, n, crc, crc_table.data()); };
    auto add_text = [&add](const char *text) { add(text, strlen(text) + 1); };
    for (const av_list_t *user = list.users.head(); user; user = user->next) {
        const uint32_t value = htobe32(static_cast<uint32_t>(user->check_value));
        add_text(user->key);
        add(&value, sizeof value);
    }
    for (const ui_entry_t *entry = list.recipients.head; entry; entry = entry->next) {
        const auto flag = static_cast<unsigned char>(entry->flag);
        add_text(entry->name);
        add_text(entry->label);
        add(&flag, sizeof flag);
    }
    return crc ? crc : 1;
}

static void report_problem(const av_list_t *entry)
{
    fprintf(stderr, "load_user_list: Ignoring problem entry:\n");
    av_printf(stderr, entry);
}

// Adds a copy of `entry` to `table`. False without memory.
static bool store_copy(av_table_t *table, const av_list_t *entry)
{
    av_list_ptr copy(av_copy(entry));
    if (copy && table->update(std::move(copy)))
        return true;
    report_problem(entry);
    return false;
}

// Reads "default" and "admin". The administrator is also an ordinary user with an inbox. False without
// memory.
static bool load_metausers(user_list_t *list)
{
    bool whole = true;
    for (const char *name : {"default", "admin"}) {
        av_list_ptr entry(ui_get(name));
        if (!entry) {
            trprintf("Warning: No %s metauser record.\n", name);
            whole = false;
            continue;
        }
        whole = store_copy(&list->metausers, entry.get()) && whole;
        if (strcmp(name, "admin") == 0)
            whole = store_copy(&list->users, entry.get()) && whole;
    }
    return whole;
}

// Reads all other entries, in the order of the file. False without memory for one of them.
static bool load_users(user_list_t *list)
{
    bool whole = true;
    while (av_list_ptr entry{ui_get(nullptr)}) {
        if (is_special_name(entry->key))
            continue;
        trprintf("load_user_list: adding ul node for user \"%s\", check_value = %d.\n", entry->key,
                 entry->check_value);
        if (!recips_list_update(&list->recipients, entry.get())) {
            report_problem(entry.get());
            whole = false;
        }
        const av_list_t *offered = entry.get();
        if (!list->users.update(std::move(entry))) {
            report_problem(offered);  // update() did not take it, so it still exists
            whole = whole && is_empty(offered->key);
        }
    }
    return whole;
}

int load_user_list(user_list_t *user_list, const char *path)
{
    if (!ui_open(path, stderr)) {
        fprintf(stderr, "load_user_list: Can't open user list file [%s].\n", ui_location(path));
        return 0;
    }
    // The old list goes only once the new one is whole; if there was no memory for it, the next request tries
    // again.
    user_list_t loaded;
    bool whole = load_metausers(&loaded);
    whole = load_users(&loaded) && whole;
    const int error = ui_error();
    ui_close();
    const bool good = whole && (error == 0 || error == 2);  // 2: no file; the built-in records serve
    if (good) {
        user_list->users.swap(loaded.users);
        user_list->metausers.swap(loaded.metausers);
        user_list->recipients.swap(loaded.recipients);
    }
    free_recipients(&loaded.recipients);
    if (!good) {
        fprintf(stderr, "load_user_list: Can't load user list file [%s].\n", ui_location(path));
        ui_forget();
        return 0;
    }
    user_list->loaded = time(nullptr);
    user_list->check_value = list_check_value(*user_list);
    return 1;
}

// MODEMS.info

// The value of a required attribute, null with a message if it is missing or empty.
static const char *required(const av_list_t *tty, const char *attr)
{
    const char *value = av_getv(tty, attr);
    if (value && *value)
        return value;
    report("load_incoming_list: Missing or null %s attribute in MODEMS.info file for tty [%s]\n", attr,
           tty->key);
    return nullptr;
}

// The full path of a tty's incoming directory in mk_path's buffer, or null with a message.
static const char *incoming_path(const av_list_t *tty)
{
    const char *directory = required(tty, "incoming_dir");
    if (!directory)
        return nullptr;
    // A relative directory is taken below "incoming_root".
    const char *path;
    if (is_full_path(directory)) {
        path = mk_path(directory, nullptr);
    } else {
        constexpr char root_attr[] = "incoming_root";
        const char *root = required(tty, root_attr);
        if (!root)
            return nullptr;
        if (!is_full_path(root)) {
            report("load_incoming_list: Invalid %s attribute in MODEMS.info file for tty [%s]: [%s]\n",
                   root_attr, tty->key, root);
            return nullptr;
        }
        path = mk_path(root, directory);
    }
    if (!path)
        report("load_incoming_list: Can't create full path to incoming directory for tty [%s].\n", tty->key);
    return path;
}

// Only directories that exist: unlike users' inboxes, these are created by the fax system.
static bool is_usable_directory(const char *path, const char *tty)
{
    struct stat st;
    const bool exists = stat(path, &st) == 0;
    if (!exists && may_come_back(errno))
        return true;
    if (!exists || !check_access_stat(st, S_IFDIR, "")) {
        report("load_incoming_list: Incoming directory [%s] for tty [%s] doesn't exist.\n", path, tty);
        return false;
    }
    if (!check_access_stat(st, S_IFDIR, "rwx")) {
        report("load_incoming_list: Incoming directory [%s] for tty [%s] has invalid permissions.\n", path,
               tty);
        return false;
    }
    return true;
}

// The node of an incoming inbox. Clients name it by its handle, a hash of the path: the same after a restart,
// and safe to send where a path would not be.
static user_node_ptr new_incoming_node(const av_list_t *tty, const char *path)
{
    const char *handle = passwd(path);
    if (!handle) {
        report("load_incoming_list: Can't hash directory name\n");
        return nullptr;
    }
    pw_req_ptr identity(new_pw(handle, nullptr, nullptr, 0, static_cast<u_int>(tty->check_value)));
    if (!identity) {
        report("load_incoming_list: new_pw failed.\n");
        return nullptr;
    }
    return new_user_node(path, std::move(identity), av_getv(tty, "incoming_gui"));
}

static user_node_t *find_by_path(const inbox_list_t *list, const char *path)
{
    user_node_t *node = list->head;
    while (node && strcmp(node->inbox, path) != 0)
        node = node->next;
    return node;
}

// When several ttys share a directory, the first description found is its name.
static void describe(user_node_t *node, const char *description)
{
    if (!node->description && description)
        node->description = strdup(description);
}

// Adds the inbox of one tty, unless another tty's entry has added it already.
static void add_incoming(inbox_list_t *list, const av_list_t *tty)
{
    // A shared directory was checked with the first tty that has it.
    const char *path = incoming_path(tty);
    user_node_t *shared = path ? find_by_path(list, path) : nullptr;
    if (shared) {
        describe(shared, av_getv(tty, "incoming_gui"));
        return;
    }
    if (!path || !is_usable_directory(path, tty->key)) {
        trprintf("load_incoming_list: Ignoring Invalid MODEMS.info entry for tty [%s].\n", tty->key);
        return;
    }
    user_node_ptr node = new_incoming_node(tty, path);
    if (node && add_user_node(list, node.get())) {
        (void)node.release();
        return;
    }
    if (node)  // Kept: "diectory"; those who search logs search for it.
        report("load_incoming_list: add_user_node failed for diectory: [%s]\n", path);
    trprintf("load_incoming_list: Can't create entry for MODEMS.info entry for tty [%s].\n", tty->key);
}

// What MODEMS.info came to; administrators compare it with what they meant.
static void trace_incoming(const inbox_list_t *list)
{
    trprintf("load_incoming_list: New unrouted inbox DF list:\n");
    for (const user_node_t *node = list->head; node; node = node->next) {
        trprintf("  Handle:         [%s]\n", inbox_name(node));
        trprintf("    Inbox:        [%s]\n", node->inbox);
        trprintf("    Description:  [%s]\n", shown(node->description));
    }
}

int load_incoming_list(inbox_list_t *list, const char *path)
{
    trprintf("load_incoming_list: Loading new unrouted inbox DF list\n");
    if (!mi_open(path, stderr)) {
        report("load_incoming_list: Can't open modem list file [%s].\n", mi_location(path));
        return 0;
    }
    // An entry is left out for faults of its own. Without memory for it the list is not complete, and the
    // next request tries again.
    inbox_list_t loaded;
    bool complete = true;
    while (av_list_ptr tty{mi_get(nullptr)}) {
        errno = 0;
        if (strcmp(tty->key, "default") != 0)
            add_incoming(&loaded, tty.get());
        complete = complete && errno != ENOMEM;
    }
    complete = complete && mi_error() == 0;
    mi_close();
    if (!complete) {
        report("load_incoming_list: Can't load modem info file [%s].\n", mi_location(path));
        mi_forget();
        free_user_list(&loaded);
        return 0;
    }
    dump_list(list);
    list->swap(loaded);
    trace_incoming(list);
    return 1;
}

// The refresh

static constexpr char refresh[] = "update_lists";

// A user whose inbox cannot be created is left without one; others are served. False without memory.
static bool create_inbox(inbox_list_t *list, const av_list_t *user)
{
    trprintf("update_lists: creating new node for user \"%s\".\n", user->key);
    errno = 0;
    user_node_ptr node(create_user_node(user));
    if (!node)
        return errno != ENOMEM;
    if (add_user_node(list, node.get())) {
        (void)node.release();
        return true;
    }
    const bool no_memory = errno == ENOMEM;  // else the name is taken
    refresh_failure(__LINE__, "%s: Can't update user list\n", refresh);
    return !no_memory;
}

// Takes the inbox out of the list and frees it; its files stay.
static bool remove_inbox(inbox_list_t *list, user_node_t *node)
{
    user_node_ptr gone(delete_user_node(list, node));
    if (!gone) {
        refresh_failure(__LINE__, "%s: delete_user_failure.\n", refresh);
        return false;
    }
    if (!dump_user_node(gone.get()))
        refresh_failure(__LINE__, "%s: Warning: can't save state for user: [%s].\n", refresh,
                        inbox_name(gone.get()));
    return true;
}

// Creates, keeps, replaces or removes a user's inbox as the new entry demands. False without memory.
static bool update_inbox(inbox_list_t *list, const av_list_t *user)
{
    trprintf("update_lists: checking inbox status of user \"%s\".\n", user->key);
    bool wanted = takes_inbox_delivery(user);
    user_node_t *node = get_user_node(list, user->key);
    trprintf(node ? "update_lists: user \"%s\" is in current list.\n"
                  : "update_lists: user \"%s\" is not in current list.\n",
             user->key);
    trprintf(wanted ? "update_lists: user \"%s\" is in new list.\n"
                    : "update_lists: user \"%s\" is not in new list.\n",
             user->key);
    if (!node)
        return !wanted || create_inbox(list, user);
    if (!wanted)
        return remove_inbox(list, node);
    if (node->identity->check_value == static_cast<u_int>(user->check_value))
        return true;
    // Kept: "inbox path", although any change of the entry leads here; clients then see new fax ids.
    trprintf("update_lists: user \"%s\" has new inbox path.\n", user->key);
    return remove_inbox(list, node) && create_inbox(list, user);
}

// One of the files is being written: the lists stay, and the next request looks again.
static void note_writer(const list_look_t &look, const char *path)
{
    if (look.error != EBUSY)
        return;
    if (look.news)
        refresh_failure(__LINE__, "%s: [%s] is still being written; the lists stay as they are.\n", refresh,
                        path);
    else
        trprintf("%s: [%s] is being written; the lists stay as they are.\n", refresh, path);
}

// A failure that the log tells already, and that nothing has been done about.
static bool is_old_failure(const list_look_t &look)
{
    return look.is_no_news() && look.error != EBUSY;
}

// A new site needs no user list: the built-in records serve. Later they must not take the users' place, since
// anybody can log in as the built-in administrator.
static bool is_usable(const list_look_t &look, const user_list_t &user_list)
{
    return look.error == 0 || (look.error == ENOENT && !user_list.from_file);
}

// Returns 0, with messages, if the users stay as they are.
static int read_users(const list_look_t &look, user_list_t *user_list, const char *path)
{
    user_list_t nobody;  // a file that cannot be read is loaded for its messages
    const bool usable = is_usable(look, *user_list);
    if (load_user_list(usable ? user_list : &nobody, path) && usable) {
        user_list->from_file = look.error == 0;
        return 1;
    }
    refresh_failure(__LINE__, "%s: Problem loading user info file: [%s].\n", refresh, ui_location(path));
    return 0;
}

// Returns 0, with messages, if the incoming inboxes stay as they are and that is news.
static int read_modems(const list_look_t &look, inbox_list_t *incoming_nodes, const char *path)
{
    inbox_list_t nothing;
    if (is_old_failure(look) || load_incoming_list(look.error ? &nothing : incoming_nodes, path))
        return 1;
    refresh_failure(__LINE__, "%s: Problem loading modem info file: [%s].\n", refresh, mi_location(path));
    return 0;
}

// Reads both files, whether or not they have changed, before anything is replaced: only what could be read
// replaces what there was. Returns 1, or 0 if the lists are not as the files say, unless that was reported
// before; as long as the lists were never complete, always 0.
static int read_lists(inbox_list_t *incoming_nodes, user_list_t *user_list, const char *user_path,
                      const char *modem_path)
{
    trprintf("update_lists: updating lists.\n");
    const list_look_t modems = mi_look(modem_path);
    if (is_old_failure(modems) && !ui_stale(user_path))
        return user_list->complete;
    const list_look_t entries = ui_look(user_path);
    if (is_old_failure(entries) && !is_usable(entries, *user_list))
        return user_list->complete;
    if (modems.error == EBUSY || entries.error == EBUSY) {
        note_writer(entries, ui_location(user_path));
        note_writer(modems, mi_location(modem_path));
        ui_close();
        mi_close();
        return user_list->complete;
    }

    if (!read_users(entries, user_list, user_path))
        return 0;
    const int read = read_modems(modems, incoming_nodes, modem_path);
    user_list->complete = user_list->complete || (read && modems.error == 0);
    user_list->unsettled = user_list->complete;
    return read && user_list->complete;
}

// Rebuilds what depends on both lists, after incoming inboxes were, since forwarders claim them. Returns 1,
// or 0 without memory: the next request then tries again, for which the claims of users are still there, or
// have been replaced by what they come to.
static int settle_users(inbox_list_t *user_nodes, const inbox_list_t *incoming_nodes, user_list_t *user_list)
{
    if (!user_list->unsettled)
        return 1;
    Forwarder.clear();
    for (av_list_t *user = user_list->users.head(); user; user = user->next) {
        trprintf("update_lists: checking DF status of user \"%s\".\n", user->key);
        if (!update_forwarder(user, &Forwarder, incoming_nodes)) {
            refresh_failure(__LINE__, "%s: update forwarder failed.\n", refresh);
            return 0;
        }
        if (!update_inbox(user_nodes, user))
            return 0;
    }
    user_list->unsettled = false;
    return 1;
}

int update_lists(inbox_list_t *user_nodes, inbox_list_t *incoming_nodes, user_list_t *user_list,
                 const char *user_path, const char *modem_path)
{
    const bool current = user_list->complete && !ui_stale(user_path) && !mi_stale(modem_path);
    if (current)
        trprintf("update_lists: neither USER_LIST.info nor MODEMS.info is stale.\n");
    const int read = current || read_lists(incoming_nodes, user_list, user_path, modem_path);
    return settle_users(user_nodes, incoming_nodes, user_list) && read;
}

int update_lists()
{
    return update_lists(&users, &incoming, &User_list, user_info, modem_info);
}

int read_lists()
{
    return read_lists(&incoming, &User_list, user_info, modem_info);
}

int settle_users()
{
    return settle_users(&users, &incoming, &User_list);
}

}  // namespace faxtray
