// USER_LIST.info: the built-in records, the open file, and where a user's inbox is.
#include "config/user_list_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "config/attributes.h"
#include "config/error_stream.h"
#include "config/info_file.h"
#include "config/munged_name.h"
#include "util/paths.h"
#include "util/text.h"

namespace faxtray {

static constexpr char file_name[] = "USER_LIST.info";

static FILE *fp = nullptr;
static FILE *Error_fp = nullptr;            // where failures are told; null: nowhere
static av_list_t *init_defaults = nullptr;  // the built-in defaults
static av_list_t *defaults = nullptr;       // the file's "default" section over them
static av_list_t *admin = nullptr;          // the file's "admin" section over the built-in one
static int ui_errno = 0;
static struct timespec last_open = {};  // the file's mtime at the last open, 0 when that found no file

namespace {
struct setting_t {
    const char *name;  // null: the name of `attr`
    const char *value;
    int attr = -1;
};
}  // namespace

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

static const setting_t admin_settings[] = {
    {"when_to_notify", "never"},
    {"admin_notify_level", "none"},
    {"admin_exception_volume", "5"},
    {"server_mail_from", "Ondrix_server"},
};

// What every record passes before it is handed out: its check value is of what it holds.
static int _ui_fix(av_list_t *entry)
{
    if (!entry || !entry->key)
        return 0;
    info_set_check_value(entry);
    return 1;
}

template <size_t N> static av_list_t *build_list(const char *key, const setting_t (&settings)[N])
{
    av_list_ptr list(av_new(key));
    if (!list) {
        report_to(Error_fp, "ui_open: av_new failed.\n");
        return nullptr;
    }
    for (const setting_t &row : settings)
        if (!av_put(list.get(), row.name ? row.name : as_get_attr(row.attr), row.value)) {
            report_to(Error_fp, "ui_open: av_put failed.\n");
            return nullptr;
        }
    if (!_ui_fix(list.get())) {
        report_to(Error_fp, "%s: Internal failure: _ui_fix.\n", "ui_open");
        return nullptr;
    }
    return list.release();
}

static bool build_lists()
{
    init_defaults = build_list("default", default_settings);
    if (!init_defaults)
        return false;
    defaults = av_copy(init_defaults);
    if (!defaults) {
        report_to(Error_fp, "%s: av_copy failed.\n", "ui_open");
        return false;
    }
    admin = build_list("admin", admin_settings);
    return admin != nullptr;
}

// Puts the file's "admin" section over the built-in one.
static void load_admin()
{
    av_list_t *merged = info_get(fp, admin, strcmp, "admin");
    if (merged) {
        av_free(admin);
        admin = merged;
    } else if (info_error() != 0) {
        report_to(Error_fp, "ui_open: av_put failed.\n");  // Kept: the text of a failure to build.
        ui_errno = 1;
    }
}

// The list's path: the one given, or the file found. Null, with ui_errno 2, when there is none.
static const char *locate(const char *path, c_string *found)
{
    path = path_or_found(path, file_name, found);
    ui_errno = path ? 0 : 2;
    return path;
}

int ui_open(const char *path, FILE *error_stream)
{
    ui_close();
    Error_fp = error_stream;
    ui_errno = 0;
    last_open = {};
    if (!build_lists()) {
        ui_close();
        ui_errno = 1;
        return 0;
    }
    c_string found;
    path = locate(path, &found);
    if (!path) {
        report_to(Error_fp, "ui_open: Can't find default file: [%s].\n", file_name);
        return 1;
    }
    fp = info_open(path, &defaults, &last_open, Error_fp);
    if (!fp) {
        report_to(Error_fp, "ui_open: info_open failed.\n");
        ui_errno = 1;
        return 1;
    }
    load_admin();
    ui_rewind();
    return 1;
}

static av_list_t *get_admin(bool with_defaults)
{
    av_list_ptr entry(av_copy(admin));
    if (!entry) {
        report_to(Error_fp, "%s: Can't copy user info admin.\n", "_ui_get");
        return nullptr;
    }
    if (with_defaults && !info_merge(entry.get(), defaults)) {
        report_to(Error_fp, "%s: Can't merge defaults with admin.\n", "_ui_get");
        return nullptr;
    }
    return entry.release();
}

static av_list_t *get_defaults(bool with_defaults)
{
    av_list_ptr entry(av_copy(defaults));
    if (!entry || (!with_defaults && !info_strip(entry.get(), init_defaults))) {
        report_to(Error_fp, "%s: Can't copy user info defaults.\n", "_ui_get");
        return nullptr;
    }
    return entry.release();
}

// The section of that name, or the next one; null also at the end, ui_errno then as it was.
static av_list_t *get_section(const char *name, bool with_defaults)
{
    if (!fp) {
        report_to(Error_fp, "%s: User info file not open.\n", "_ui_get");
        ui_errno = 2;
        return nullptr;
    }
    av_list_t *entry = info_get(fp, with_defaults ? defaults : nullptr, munged_strcmp, name);
    if (!entry && info_error() != 0) {
        report_to(Error_fp, "ui_get: info_get failure.\n");
        ui_errno = 1;
    }
    return entry;
}

static av_list_t *_ui_get(const char *name, bool with_defaults)
{
    ui_errno = 0;
    bool is_admin = name && strcmp(name, "admin") == 0;
    bool is_default = name && strcmp(name, "default") == 0;
    av_list_ptr entry(is_admin     ? get_admin(with_defaults)
                      : is_default ? get_defaults(with_defaults)
                                   : get_section(name, with_defaults));
    if (!entry) {
        if (is_admin || is_default)
            ui_errno = 1;
        return nullptr;
    }
    if (!_ui_fix(entry.get())) {
        report_to(Error_fp, "%s: Internal failure: _ui_fix.\n", "_ui_get");
        ui_errno = 1;
        return nullptr;
    }
    return entry.release();
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
    if (info_rewind(fp))
        return 1;
    report_to(Error_fp, "ui_rewind: info_rewind failure.\n");
    ui_errno = info_error();
    return 0;
}

int ui_stale(const char *path)
{
    c_string found;
    path = locate(path, &found);
    if (!path)
        return 0;
    if (info_stale(last_open, path))
        return 1;
    if (info_error() != 0) {
        report_to(Error_fp, "ui_stale: info_stale(\"%s\") failed.\n", path);
        ui_errno = 1;
    }
    return 0;
}

time_t ui_last_update(const char *path)
{
    c_string found;
    path = locate(path, &found);
    if (!path)
        return 0;
    struct stat st;
    if (stat(path, &st) != 0) {
        ui_errno = errno;
        report_to(Error_fp, "ui_last_update: stat: %s\n", strerror(ui_errno));
        return 0;
    }
    return st.st_mtime;
}

void ui_close()
{
    av_free(admin);
    admin = nullptr;
    info_close(&fp, &defaults, &init_defaults);
    Error_fp = nullptr;
}

int ui_error()
{
    return ui_errno;
}

char *ui_map_name(const char *name)
{
    ui_errno = 1;
    if (!name) {
        report_to(Error_fp, "ui_map_name: Can't map null name.\n");
        return nullptr;
    }
    char *mapped = static_cast<char *>(malloc(strlen(name) + 1));
    if (!mapped) {
        report_to(Error_fp, "ui_map_name: Out of memory: %s.\n", strerror(errno));
        return nullptr;
    }
    char *out = mapped;
    for (; *name; name++) {
        char ch = *name;
        if (ch >= 'A' && ch <= 'Z')
            *out++ = static_cast<char>(ch - 'A' + 'a');
        else if ((ch >= 'a' && ch <= 'z') || (ch >= '0' && ch <= '9') || ch == '-' || ch == '_')
            *out++ = ch;
    }
    *out = '\0';
    ui_errno = 0;
    return mapped;
}

// "root/dir", or null without memory.
static char *new_inbox_path(const char *root, const char *dir)
{
    size_t size = strlen(root) + strlen(dir) + 2;
    char *path = static_cast<char *>(malloc(size));
    if (!path) {
        report_to(Error_fp, "new_inbox_path: malloc(%d): %s\n", static_cast<int>(size), strerror(errno));
        return nullptr;
    }
    snprintf(path, size, "%s/%s", root, dir);
    return path;
}

char *ui_inbox_path(const av_list_t *entry)
{
    c_string mapped, joined;
    const char *dir = av_getv(entry, as_get_attr(AS_DELIVERY_DIR));
    const char *root = av_getv(entry, as_get_attr(AS_DELIVERY_DIR_ROOT));
    if (is_empty(dir)) {
        const char *name = entry ? entry->key : nullptr;
        mapped.reset(ui_map_name(name));
        if (!mapped) {
            report_to(Error_fp, "ui_inbox_path: ui_map_name(\"%s\") failed.\n", name ? name : "(null)");
            return nullptr;
        }
        dir = mapped.get();
    }
    ui_errno = 1;
    if (!is_full_path(dir) && !is_empty(root)) {
        joined.reset(new_inbox_path(root, dir));
        if (!joined)
            return nullptr;
        dir = joined.get();
    }
    errno = EINVAL;  // what stands when the path itself is refused
    char *path = mkpath(dir).release();
    if (!path) {
        report_to(Error_fp, "ui_inbox_path: strdup(\"%s\"): %s\n", dir, strerror(errno));
        return nullptr;
    }
    ui_errno = 0;
    return path;
}

}  // namespace faxtray
