// MODEMS.info: the built-in defaults, the open file, and the incoming directory of each line.
#include "config/modem_list_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "config/error_stream.h"
#include "config/info_file.h"
#include "config/modem_defaults.h"
#include "util/paths.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

static constexpr char file_name[] = "MODEMS.info";

static FILE *fp = nullptr;
static FILE *Error_fp = nullptr;            // where failures are told; null: nowhere
static av_list_t *init_defaults = nullptr;  // the built-in defaults
static av_list_t *defaults = nullptr;       // the file's "default" section over them
static int mi_errno = 0;
static struct timespec last_open = {};  // the file's mtime at the last open, 0 when that found no file

static bool is_valid_dir(const char *path)
{
    return is_valid_path(path);
}

static bool is_valid_root(const char *path)
{
    return is_valid_path(path) && is_full_path(path);
}

// Normalising an entry

// The first valid one of the entry's own, the defaults' and the built-in value of `attr`, or null.
static const char *choose(const av_list_t *entry, const char *attr, bool (*is_valid)(const char *))
{
    bool is_default = strcmp(entry->key, "default") == 0;
    for (const av_list_t *list : {entry, static_cast<const av_list_t *>(is_default ? nullptr : defaults)}) {
        const char *value = av_getv(list, attr);
        if (!value)
            continue;
        if (is_valid(value))
            return value;
        trprintf("%s: Invalid %s attribute in MODEMS.info file for device [%s]: [%s]\n", "_mi_fix", attr,
                 list->key, value);
    }
    const char *value = av_getv(init_defaults, attr);
    if (value && is_valid(value))
        return value;
    trprintf("%s: Invalid initial value for %s attribute : [%s]\n", "_mi_fix", attr,
             value ? value : "(null)");
    return nullptr;
}

// The absolute incoming directory of an entry, which the caller frees, or null.
static char *incoming_path(const av_list_t *entry)
{
    const char *dir = choose(entry, "incoming_dir", is_valid_dir);
    if (!dir) {
        report_to(Error_fp, "%s: Missing or invalid %s attribute for device [%s]\n", "_mi_fix",
                  "incoming_dir", entry->key);
        return nullptr;
    }
    char joined[MAXPATHLEN + 2];
    if (!is_full_path(dir)) {
        const char *root = choose(entry, "incoming_root", is_valid_root);
        if (!root) {
            report_to(Error_fp, "%s: Missing or invalid %s attribute for device [%s]\n", "_mi_fix",
                      "incoming_root", entry->key);
            return nullptr;
        }
        // The limit is on the two together, without the "/" between them.
        if (snprintf(joined, sizeof joined, "%s/%s", root, dir) > MAXPATHLEN + 1) {
            report_to(Error_fp, "%s: Path length exceeds MAXPATHLEN of %d for device [%s].\n", "_mi_fix",
                      MAXPATHLEN, entry->key);
            return nullptr;
        }
        dir = joined;
    }
    char *path = mkpath(dir).release();
    if (!path)
        report_to(Error_fp, "%s: Can't create full path to incoming directory for device [%s].\n", "_mi_fix",
                  entry->key);
    return path;
}

static int _mi_fix(av_list_t *entry)
{
    const char *usage = av_getv(entry, "usage");
    if (usage && strstr(usage, "ondrix_did_info") && !av_put(entry, "tty_baud_rate", "9600"))
        return 0;

    c_string path(incoming_path(entry));
    if (!path || !av_put(entry, "incoming_dir", path.get()))
        return 0;

    if (is_empty(av_getv(entry, "usage")) && is_empty(av_getv(defaults, "usage"))) {
        report_to(Error_fp, "%s: Warning: null or missing %s value.\n", "_mi_fix", "usage");
        if (!av_put(entry, "usage", "ondrix"))
            return 0;
    }
    info_set_check_value(entry);
    return 1;
}

// The open file

static bool build_defaults()
{
    av_list_ptr list(av_new("default"));
    if (!list) {
        report_to(Error_fp, "mi_open: av_new failed.\n");
        return false;
    }
    char directory[MAXPATHLEN + 1];
    const char *root = getenv("ONDRIXHOME");
    if (!root || !is_valid_root(root)) {
        root = cv_getcwd(directory, sizeof directory);
        if (!root) {
            report_to(Error_fp, "mi_open: getcwd failed.\n");
            return false;
        }
    }
    int put = av_put(list.get(), "incoming_root", root);
    for (const modem_setting_t &row : modem_defaults)
        put = put && av_put(list.get(), row.name, row.value);
    if (!put) {
        report_to(Error_fp, "mi_open: av_put failed.\n");
        return false;
    }
    info_set_check_value(list.get());
    init_defaults = list.release();
    defaults = av_copy(init_defaults);
    if (!defaults)
        report_to(Error_fp, "%s: av_copy failed.\n", "mi_open");
    return defaults != nullptr;
}

// The list's path: the one given, or the file found. Null, with mi_errno 2, when there is none.
static const char *locate(const char *path, c_string *found)
{
    path = path_or_found(path, file_name, found);
    mi_errno = path ? 0 : 2;
    return path;
}

// Opens the file if there is one; mi_errno says when not.
static void open_file(const char *path)
{
    c_string found;
    path = locate(path, &found);
    if (!path) {
        report_to(Error_fp, "mi_open: Can't find default file: [%s].\n", file_name);
        return;
    }
    fp = info_open(path, &defaults, &last_open, Error_fp);
    if (!fp) {
        report_to(Error_fp, "mi_open: info_open failed.\n");
        mi_errno = 1;
    }
}

static int fail_open()
{
    mi_close();
    mi_errno = 1;
    return 0;
}

int mi_open(const char *path, FILE *error_stream)
{
    mi_close();
    Error_fp = error_stream;
    mi_errno = 0;
    last_open = {};
    if (!build_defaults())
        return fail_open();
    open_file(path);
    if (!_mi_fix(defaults)) {
        report_to(Error_fp, "%s: Internal failure: _mi_fix.\n", "mi_open");
        return fail_open();
    }
    return 1;
}

static av_list_t *get_defaults(bool with_defaults)
{
    av_list_ptr entry(av_copy(defaults));
    if (!entry || (!with_defaults && !info_strip(entry.get(), init_defaults))) {
        report_to(Error_fp, "%s: Can't copy modem info defaults.\n", "_mi_get");
        mi_errno = 1;
        return nullptr;
    }
    if (!_mi_fix(entry.get())) {
        report_to(Error_fp, "%s: Internal failure: _mi_fix.\n", "_mi_get");
        mi_errno = 1;
        return nullptr;
    }
    return entry.release();
}

static av_list_t *_mi_get(const char *name, bool with_defaults)
{
    mi_errno = 0;
    if (name && strcmp(name, "default") == 0)
        return get_defaults(with_defaults);
    if (!fp) {
        report_to(Error_fp, "%s: Modem info file not open.\n", "_mi_get");
        mi_errno = 2;
        return nullptr;
    }
    while (av_list_ptr entry{info_get(fp, with_defaults ? defaults : nullptr, strcmp, name)}) {
        if (_mi_fix(entry.get()))
            return entry.release();
        report_to(Error_fp, "%s: Internal failure: _mi_fix.\n", "_mi_get");
        if (!is_empty(name)) {
            mi_errno = 1;
            return nullptr;
        }
        // One bad device does not hide those behind it.
    }
    if (info_error() != 0) {
        report_to(Error_fp, "mi_get: info_get failure.\n");
        mi_errno = 1;
    }
    return nullptr;
}

av_list_t *mi_get(const char *name)
{
    return _mi_get(name, true);
}

av_list_t *mi_get_no_defaults(const char *name)
{
    return _mi_get(name, false);
}

int mi_rewind()
{
    if (info_rewind(fp))
        return 1;
    report_to(Error_fp, "mi_rewind: info_rewind failure.\n");
    mi_errno = info_error();
    return 0;
}

int mi_stale(const char *path)
{
    c_string found;
    path = locate(path, &found);
    if (!path)
        return 0;
    if (info_stale(last_open, path))
        return 1;
    if (info_error() != 0) {
        report_to(Error_fp, "mi_stale: info_stale(\"%s\") failed.\n", path);
        mi_errno = 1;
    }
    return 0;
}

time_t mi_last_update(const char *path)
{
    c_string found;
    path = locate(path, &found);
    if (!path)
        return 0;
    struct stat st;
    if (stat(path, &st) != 0) {
        mi_errno = errno;
        report_to(Error_fp, "mi_last_update: stat: %s\n", strerror(mi_errno));
        return 0;
    }
    return st.st_mtime;
}

void mi_close()
{
    info_close(&fp, &defaults, &init_defaults);
    Error_fp = nullptr;
}

int mi_error()
{
    return mi_errno;
}

FILE *mi_error_stream()
{
    return Error_fp;
}

}  // namespace faxtray
