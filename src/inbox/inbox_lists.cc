// inbox_lists: reads the two configuration files into the lists that requests are answered from.
#include "inbox/inbox_lists.h"

#include <sys/param.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "config/av_list.h"
#include "config/modem_list_file.h"
#include "config/user_list_file.h"
#include "inbox/messages.h"
#include "log/exception_log.h"
#include "util/access.h"
#include "util/crc.h"
#include "util/paths.h"
#include "util/settings.h"
#include "util/short_hash.h"
#include "util/text.h"
#include "util/trace.h"
#include "util/version_id.h"

namespace faxtray {

inbox_list_t users;
inbox_list_t incoming;
user_list_t User_list;
av_table_t Forwarder;

// The last message of this module. Kept: a failure of ui_inbox_path is appended to whatever it holds.
static char message[MAXPATHLEN + 512];

// Writes the message of source line `line` to the exception log and standard error.
static void log_message(int line)
{
    const int length = static_cast<int>(strcspn(message, "\n"));  // an entry ends its line itself
    elog_writef(SCCS_ID, __FILE__, line, ELOG_WARNING, ELOG_FILE | ELOG_STDERR, "%.*s", length, message);
}

// A failure of a refresh: to the trace and the exception log, which also prints it.
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

// A failure of create_user_node, whose text stands in `message`. Returns null.
static user_node_t *node_failure(int line)
{
    trprintf("%s: %s", Program, message);
    log_message(line);
    return nullptr;
}

// Makes sure that the inbox can be used; false with the reason in `message`.
static bool prepare_directory(const char *inbox)
{
    struct stat st;
    bool exists = stat(inbox, &st) == 0;
    if (!exists && errno == ENOENT) {
        if (mkdir(inbox, 0777) < 0) {
            snprintf(message, sizeof message, "%s: mkdir(\"%s\",0777): %s\n", "create_user_node", inbox,
                     strerror(errno));
            return false;
        }
        exists = stat(inbox, &st) == 0;
    }
    if (exists && check_access_stat(st, S_IFDIR, "rwx"))
        return true;
    snprintf(message, sizeof message, "%s: Can't use directory [%s]: %s\n", "create_user_node", inbox,
             strerror(EACCES));
    return false;
}

user_node_t *create_user_node(const av_list_t *user)
{
    pw_req_ptr identity(
        new_pw(user->key, av_getv(user, "password"), nullptr, 0, static_cast<u_int>(user->check_value)));
    if (!identity) {
        snprintf(message, sizeof message, "%s: new_pw failed.\n", "create_user_node");
        return node_failure(__LINE__);
    }
    c_string inbox(ui_inbox_path(user));
    if (!inbox) {
        size_t length = strlen(message);
        snprintf(message + length, sizeof message - length, "ui_inbox_path failed.\n");
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

// CRC-32 of crc.h over, for each user in order: the name's bytes, a zero byte, the entry's check value in
// four bytes, the highest first; then for each recipient: the name's bytes, a zero byte, the label's
// bytes, a zero byte, the flag in one byte. 1 in place of 0, which to clients means "not known".
static u_int list_check_value(const user_list_t &list)
{
    static uint32_t table[256];
    if (table[255] == 0)
        crc_load_rev_table(0xEDB88320, table);

    uint32_t crc = 0;
    auto add_text = [&crc](const char *text) { crc = crc_rev_update(text, strlen(text) + 1, crc, table); };
    for (const av_list_t *user = list.users.head(); user; user = user->next) {
        auto value = static_cast<uint32_t>(user->check_value);
        const unsigned char bytes[] = {
            static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
            static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
        add_text(user->key);
        crc = crc_rev_update(bytes, sizeof bytes, crc, table);
    }
    for (const ui_entry_t *entry = list.recipients.head; entry; entry = entry->next) {
        auto flag = static_cast<unsigned char>(entry->flag);
        add_text(entry->name);
        add_text(entry->label);
        crc = crc_rev_update(&flag, 1, crc, table);
    }
    return crc ? crc : 1;
}

static void problem_entry(const av_list_t *entry)
{
    fprintf(stderr, "load_user_list: Ignoring problem entry:\n");
    av_printf(stderr, entry);
}

// Puts a copy of `entry` into `table`.
static void store_copy(av_table_t *table, const av_list_t *entry)
{
    av_list_ptr copy(av_copy(entry));
    if (!copy || !table->update(std::move(copy)))
        problem_entry(entry);
}

static void load_metausers(user_list_t *list)
{
    for (const char *name : {"default", "admin"}) {
        av_list_ptr entry(ui_get(name));
        if (!entry) {
            trprintf("Warning: No %s metauser record.\n", name);
            continue;
        }
        store_copy(&list->metausers, entry.get());
        if (strcmp(name, "admin") == 0)
            store_copy(&list->users, entry.get());
    }
}

static void load_users(user_list_t *list)
{
    while (av_list_ptr entry{ui_get(nullptr)}) {
        if (munged_strcmp(entry->key, "default") == 0 || munged_strcmp(entry->key, "admin") == 0)
            continue;
        trprintf("load_user_list: adding ul node for user \"%s\", check_value = %d.\n", entry->key,
                 entry->check_value);
        if (!recips_list_update(&list->recipients, entry.get()))
            problem_entry(entry.get());
        const av_list_t *offered = entry.get();
        if (!list->users.update(std::move(entry)))
            problem_entry(offered);  // a table that refuses an entry leaves it where it was
    }
}

int load_user_list(user_list_t *user_list, const char *path)
{
    if (!ui_open(path, stderr)) {
        fprintf(stderr, "load_user_list: Can't open user list file [%s].\n", shown(path));
        return 0;
    }
    user_list->users.clear();
    user_list->metausers.clear();
    free_recipients(&user_list->recipients);

    load_metausers(user_list);
    load_users(user_list);
    int error = ui_error();
    ui_close();
    if (error != 0 && error != 2) {
        fprintf(stderr, "load_user_list: Can't load user list file [%s].\n", shown(path));
        user_list->users.clear();
        user_list->metausers.clear();
        return 0;
    }
    user_list->loaded = time(nullptr);
    user_list->check_value = list_check_value(*user_list);
    return 1;
}

// MODEMS.info

// The value of a required attribute, or null with a message.
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

static bool is_usable_directory(const char *path, const char *tty)
{
    if (!check_dir_access(path, "")) {
        report("load_incoming_list: Incoming directory [%s] for tty [%s] doesn't exist.\n", path, tty);
        return false;
    }
    if (!check_dir_access(path, "rwx")) {
        report("load_incoming_list: Incoming directory [%s] for tty [%s] has invalid permissions.\n", path,
               tty);
        return false;
    }
    return true;
}

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

// Several ttys may share a directory: the first one that describes it names it.
static void describe(user_node_t *node, const char *description)
{
    if (!node->description && description)
        node->description = strdup(description);
}

// Makes the inbox of one tty, unless it is there already.
static void add_incoming(inbox_list_t *list, const av_list_t *tty)
{
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
    if (node)
        report("load_incoming_list: add_user_node failed for diectory: [%s]\n", path);
    trprintf("load_incoming_list: Can't create entry for MODEMS.info entry for tty [%s].\n", tty->key);
}

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
    dump_list(list);
    if (!mi_open(path, stderr)) {
        report("load_incoming_list: Can't open modem list file [%s].\n", shown(path));
        return 0;
    }
    while (av_list_ptr tty{mi_get(nullptr)})
        if (strcmp(tty->key, "default") != 0)
            add_incoming(list, tty.get());
    int error = mi_error();
    mi_close();
    if (error != 0) {
        report("load_incoming_list: Can't load modem info file [%s].\n", shown(path));
        free_user_list(list);
        return 0;
    }
    trace_incoming(list);
    return 1;
}

// The refresh

constexpr char refresh[] = "update_lists";

static bool takes_inbox_delivery(const av_list_t *user)
{
    const char *method = av_getv(user, "delivery_method");
    return method && strstr(method, "faxtray");
}

static void create_inbox(inbox_list_t *list, const av_list_t *user)
{
    trprintf("update_lists: creating new node for user \"%s\".\n", user->key);
    user_node_ptr node(create_user_node(user));
    if (!node)
        return;
    if (add_user_node(list, node.get()))
        (void)node.release();
    else
        refresh_failure(__LINE__, "%s: Can't update user list\n", refresh);
}

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

// Makes, keeps, renews or removes a user's inbox as the new entry asks.
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
    if (!node) {
        if (wanted)
            create_inbox(list, user);
        return true;
    }
    if (!wanted)
        return remove_inbox(list, node);
    if (node->identity->check_value == static_cast<u_int>(user->check_value))
        return true;
    // Any change of the entry comes here, not only one of the path.
    trprintf("update_lists: user \"%s\" has new inbox path.\n", user->key);
    if (!remove_inbox(list, node))
        return false;
    create_inbox(list, user);
    return true;
}

int update_lists(inbox_list_t *user_nodes, inbox_list_t *incoming_nodes, user_list_t *user_list,
                 const char *user_path, const char *modem_path)
{
    if (!ui_stale(user_path) && !mi_stale(modem_path)) {
        trprintf("update_lists: neither USER_LIST.info nor MODEMS.info is stale.\n");
        return 1;
    }
    trprintf("update_lists: updating lists.\n");
    return reload_lists(user_nodes, incoming_nodes, user_list, user_path, modem_path);
}

int reload_lists(inbox_list_t *user_nodes, inbox_list_t *incoming_nodes, user_list_t *user_list,
                 const char *user_path, const char *modem_path)
{
    if (!load_user_list(user_list, user_path)) {
        refresh_failure(__LINE__, "%s: Problem loading user info file: [%s].\n", refresh, shown(user_path));
        return 0;
    }
    if (!load_incoming_list(incoming_nodes, modem_path)) {
        refresh_failure(__LINE__, "%s: Problem loading modem info file: [%s].\n", refresh, shown(modem_path));
        return 0;
    }
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
    return 1;
}

}  // namespace faxtray
