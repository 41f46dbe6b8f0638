// Users are kept in memory, indexed by name: a group's notices ask for many of them. Modems are few, so
// the open file is asked each time.
#include "companion/registry_tables.h"

#include <cstdio>
#include <memory>
#include <new>

#include "config/av_table.h"
#include "config/info_file.h"
#include "config/modem_list_file.h"
#include "config/user_list_file.h"
#include "config/user_settings.h"
#include "util/text.h"

namespace faxtray {

static const char *user_list_path = nullptr;
static const char *modem_list_path = nullptr;
static std::unique_ptr<av_table_t> users;  // null until first loaded
static av_list_ptr modem;                  // the last answer

void set_registry_files(const char *user_list, const char *modem_list)
{
    user_list_path = user_list;
    modem_list_path = modem_list;
}

// Takes over an entry, without what others may not see. Returns false if it cannot be stored.
static bool store_user(av_table_t *table, av_list_ptr entry)
{
    if (!entry)
        return false;
    av_delete(entry.get(), "password");
    return table->update(std::move(entry));
}

// "admin" and "default" first, then every section that is neither in any spelling, as in the inbox server.
static bool load_users(av_table_t *table)
{
    for (const char *name : {"admin", "default"})
        if (!store_user(table, av_list_ptr(ui_get(name))))
            return false;
    while (av_list_ptr entry{ui_get(nullptr)})
        if (!is_special_name(entry->key) && !store_user(table, std::move(entry)))
            fprintf(stderr, "registry_tables: Ignoring problem entry.\n");
    return true;
}

// Whether the last call succeeded or found no file, when the two built-in records serve.
static bool ui_good()
{
    return ui_error() == INFO_OK || ui_error() == INFO_NOT_OPEN;
}

// Loads the table again if the file has changed. A new table replaces the old one only when it is whole, so
// that an edit in progress takes no user away. False if there is no table at all.
static bool refresh_users()
{
    if (users && !ui_stale(user_list_path))
        return true;
    if (ui_look(user_list_path).is_no_news() && users)
        return true;
    std::unique_ptr<av_table_t> fresh(new (std::nothrow) av_table_t());
    if (fresh && ui_open(user_list_path, stderr) && ui_good() && load_users(fresh.get()) && ui_good())
        users = std::move(fresh);
    else
        fprintf(stderr, "registry_tables: Can't load user list file [%s].\n",
                user_list_path ? user_list_path : "USER_LIST.info");
    ui_close();
    return users != nullptr;
}

table_answer find_user(const char *name, const av_list_t **entry)
{
    if (!refresh_users())
        return table_answer::NOT_LOADED;
    *entry = is_empty(name) ? nullptr : users->get(name);
    return *entry ? table_answer::FOUND : table_answer::UNKNOWN;
}

table_answer find_forwarder(const char *name, const av_list_t **entry)
{
    const table_answer answer = find_user(name, entry);
    if (answer == table_answer::FOUND && is_empty(av_getv(*entry, "forwarder")))
        return table_answer::UNKNOWN;
    return answer;
}

table_answer find_modem(const char *name, const av_list_t **entry)
{
    // The file stays open between questions; mi_open of a file that has changed closes it first.
    static bool opened = false;
    if (!opened || mi_stale(modem_list_path)) {
        if (!mi_look(modem_list_path).is_no_news() || !opened)
            opened = mi_open(modem_list_path, stderr);
    }
    if (!opened)
        return table_answer::NOT_LOADED;
    modem.reset(is_empty(name) ? nullptr : mi_get(name));
    *entry = modem.get();
    if (modem)
        return table_answer::FOUND;
    // Without a file no modem is known; only a file that cannot be read is a failure.
    const bool good = is_empty(name) || mi_error() == INFO_OK || mi_error() == INFO_NOT_OPEN;
    return good ? table_answer::UNKNOWN : table_answer::NOT_LOADED;
}

}  // namespace faxtray
