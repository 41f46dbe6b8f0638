// The built-in records, look-ups, and where a user's inbox is.
#include "config/user_list_file.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "config/attributes.h"
#include "config/error_stream.h"
#include "config/info_source.h"
#include "config/munged_name.h"
#include "util/paths.h"
#include "util/text.h"

namespace faxtray {

static info_source_t source = {"USER_LIST.info", "ui", "user", "User"};
static av_list_t *admin = nullptr;  // the file's "admin" section over the built-in one

namespace {
struct setting_t {
    const char *name;  // null: the name of `attr`
    const char *value;
    int attr = -1;
};
}  // namespace

// Under every user's section.
static const setting_t default_settings[] = {
    {"access_history", "owner"},
    {"access_queue", "owner"},
    {"authorize_enable", "false"},
    {"server_cover_list", "server_cover1.ps"},
    {"server_cover_list_gui", "Sample Server Cover Sheet"},
    {"fax_forwarding", "true"},
    {"how_to_notify", "email"},
    {"when_to_notify", "fax_failures,fax_forwarding"},
    {"cover_locus", "client"},
    {nullptr, "uuencode", AS_DELIVERY_BODY_ENCODING},
    {nullptr, "g3", AS_DELIVERY_FILE_FORMAT},
    {nullptr, "posix", AS_DELIVERY_NAMING},
    {"delivery_dir_root", "faxtrayes"},
    {"highest_priority", "3"},
    {"net_poll_interval", "60"},
    {"use_ldap", "NO"},
    {"winclient", "false"},
    {"webclient_root", "false"},
    {"xmit_queue_list", "1"},
    {"delivery_method", "faxtray"},
    {"xmit_queue_list_gui", "Server Outbox"},
};

// Under the section "admin". Kept: notices are off until an administrator asks for them.
static const setting_t admin_settings[] = {
    {"when_to_notify", "never"},
    {"admin_notify_level", "none"},
    {"admin_exception_volume", "5"},
    {"server_mail_from", "Ondrix_server"},
};

// A list of the settings. Returns null with a message when out of memory.
template <size_t N> static av_list_t *build_list(const char *key, const setting_t (&settings)[N])
{
    av_list_ptr list(av_new(key));
    if (!list) {
        report_to(source.Error_fp, "ui_open: av_new failed.\n");
        return nullptr;
    }
    for (const setting_t &row : settings)
        if (!av_put(list.get(), row.name ? row.name : as_get_attr(row.attr), row.value)) {
            report_to(source.Error_fp, "ui_open: av_put failed.\n");
            return nullptr;
        }
    info_set_check_value(list.get());
    return list.release();
}

static av_list_t *build_defaults()
{
    return build_list("default", default_settings);
}

// Puts the file's "admin" section over the built-in one. False without memory: the built-in one asks for no
// password, so it must not stand in.
static bool load_admin()
{
    av_list_t *merged = info_get(source.fp, admin, strcmp, "admin");
    if (merged) {
        av_free(admin);
        admin = merged;
    } else if (info_error() != INFO_OK) {
        // Kept: the message of a failure to build the lists; the log shows no other for this one.
        report_to(source.Error_fp, "ui_open: av_put failed.\n");
        return false;
    }
    return true;
}

list_look_t ui_look(const char *path)
{
    return source_look(source, path);
}

const char *ui_location(const char *path)
{
    return source_location(source, path);
}

int ui_open(const char *path, FILE *error_stream)
{
    av_free(std::exchange(admin, nullptr));
    if (!source_reset(source, error_stream, build_defaults))
        return 0;
    admin = build_list("admin", admin_settings);
    if (admin) {
        source_open_file(source, path);
        // Without a file the built-in records serve, so that the daemon runs on a host that has no list yet.
        if (source.failure != 0 || (source.fp && load_admin() && ui_rewind()))
            return 1;
    }
    ui_close();
    ui_forget();
    source.error = INFO_FAILED;
    return 0;
}

static av_list_t *get_admin(bool with_defaults)
{
    av_list_ptr entry(av_copy(admin));
    if (!entry)
        report_to(source.Error_fp, "%s: Can't copy user info admin.\n", "_ui_get");
    else if (!with_defaults || info_merge(entry.get(), source.defaults))
        return entry.release();
    else
        report_to(source.Error_fp, "%s: Can't merge defaults with admin.\n", "_ui_get");
    source.error = INFO_FAILED;
    return nullptr;
}

// The record or section of that name. Only the exact names "admin" and "default" mean the special records; a
// section in another spelling, such as "Admin", is found as a user's.
static av_list_t *_ui_get(const char *name, bool with_defaults)
{
    source.error = INFO_OK;
    av_list_t *entry;
    if (name && strcmp(name, "admin") == 0)
        entry = get_admin(with_defaults);
    else if (name && strcmp(name, "default") == 0)
        entry = source_get_defaults(source, !with_defaults);
    else
        entry = source_get_section(source, with_defaults, munged_strcmp, name);
    // The check value is of what is returned, which clients compare with what they hold.
    if (entry)
        info_set_check_value(entry);
    return entry;
}

av_list_t *ui_get(const char *name)
{
    return _ui_get(name, true);
}

av_list_t *ui_get_no_defaults(const char *name)
{
    return _ui_get(name, false);
}

int ui_rewind()
{
    return source_rewind(source);
}

int ui_stale(const char *path)
{
    return source_stale(source, path);
}

void ui_forget()
{
    source.last_open = {};
}

time_t ui_last_update(const char *path)
{
    return source_last_update(source, path);
}

void ui_close()
{
    av_free(std::exchange(admin, nullptr));
    source_close(source);
}

int ui_error()
{
    return source.error;
}

char *ui_map_name(const char *name)
{
    source.error = INFO_FAILED;
    if (!name) {
        report_to(source.Error_fp, "ui_map_name: Can't map null name.\n");
        return nullptr;
    }
    char *mapped = static_cast<char *>(malloc(strlen(name) + 1));
    if (!mapped) {
        report_to(source.Error_fp, "ui_map_name: Out of memory: %s.\n", strerror(errno));
        return nullptr;
    }
    // The result never exceeds the name. All but ASCII is dropped, so that it is safe in any locale.
    char *out = mapped;
    for (; *name; name++) {
        char ch = *name;
        if (ch >= 'A' && ch <= 'Z')
            *out++ = static_cast<char>(ch - 'A' + 'a');
        else if ((ch >= 'a' && ch <= 'z') || (ch >= '0' && ch <= '9') || ch == '-' || ch == '_')
            *out++ = ch;
    }
    *out = '\0';
    source.error = INFO_OK;
    return mapped;
}

// "root/dir", or null with a message when out of memory.
static char *new_inbox_path(const char *root, const char *dir)
{
    size_t size = strlen(root) + strlen(dir) + 2;
    char *path = static_cast<char *>(malloc(size));
    if (!path) {
        report_to(source.Error_fp, "new_inbox_path: malloc(%d): %s\n", static_cast<int>(size),
                  strerror(errno));
        return nullptr;
    }
    snprintf(path, size, "%s/%s", root, dir);
    return path;
}

char *ui_inbox_path(const av_list_t *entry)
{
    // Owners of what `dir` may come to point to.
    c_string mapped, joined;
    const char *dir = av_getv(entry, as_get_attr(AS_DELIVERY_DIR));
    const char *root = av_getv(entry, as_get_attr(AS_DELIVERY_DIR_ROOT));
    // The user's own directory, or one named after the user.
    if (is_empty(dir)) {
        const char *name = entry ? entry->key : nullptr;
        mapped.reset(ui_map_name(name));
        if (!mapped) {
            report_to(source.Error_fp, "ui_inbox_path: ui_map_name(\"%s\") failed.\n", shown(name));
            return nullptr;
        }
        dir = mapped.get();
    }
    source.error = INFO_FAILED;  // unless all goes well
    if (!is_full_path(dir) && !is_empty(root)) {
        joined.reset(new_inbox_path(root, dir));
        if (!joined)
            return nullptr;
        dir = joined.get();
    }
    errno = EINVAL;  // for the message: mkpath sets none when it refuses the path
    char *path = mkpath(dir).release();
    if (!path) {
        report_to(source.Error_fp, "ui_inbox_path: strdup(\"%s\"): %s\n", dir, strerror(errno));
        return nullptr;
    }
    source.error = INFO_OK;
    return path;
}

}  // namespace faxtray
