// The built-in defaults, look-ups, and the incoming directory of each line.
#include "config/modem_list_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "config/error_stream.h"
#include "config/info_source.h"
#include "config/modem_defaults.h"
#include "util/paths.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

static info_source_t source = {"MODEMS.info", "mi", "modem", "Modem"};

static int is_valid_root(const char *path)
{
    return is_valid_path(path) && is_full_path(path);
}

// Normalising an entry

// The first valid value of `attr` in the entry, the defaults and the built-in defaults, or null. Each invalid
// one is traced: an administrator who mistypes a directory finds there why another is used.
static const char *choose(const av_list_t *entry, const char *attr, int (*is_valid)(const char *))
{
    bool is_default = strcmp(entry->key, "default") == 0;
    for (const av_list_t *list :
         {entry, static_cast<const av_list_t *>(is_default ? nullptr : source.defaults)}) {
        const char *value = av_getv(list, attr);
        if (!value)
            continue;
        if (is_valid(value))
            return value;
        trprintf("%s: Invalid %s attribute in MODEMS.info file for device [%s]: [%s]\n", "_mi_fix", attr,
                 entry->key, value);
    }
    const char *value = av_getv(source.init_defaults, attr);
    if (value && is_valid(value))
        return value;
    trprintf("%s: Invalid initial value for %s attribute : [%s]\n", "_mi_fix", attr, shown(value));
    return nullptr;
}

// The absolute incoming directory of an entry, or null with a message. The caller frees it.
static char *incoming_path(const av_list_t *entry)
{
    const char *dir = choose(entry, "incoming_dir", is_valid_path);
    if (!dir) {
        report_to(source.Error_fp, "%s: Missing or invalid %s attribute for device [%s]\n", "_mi_fix",
                  "incoming_dir", entry->key);
        return nullptr;
    }
    // A relative directory is under the root. The root may come from another list than the directory: see
    // CAVEATS in MODEMS.info(5).
    char joined[MAXPATHLEN + 2];
    if (!is_full_path(dir)) {
        const char *root = choose(entry, "incoming_root", is_valid_root);
        if (!root) {
            report_to(source.Error_fp, "%s: Missing or invalid %s attribute for device [%s]\n", "_mi_fix",
                      "incoming_root", entry->key);
            return nullptr;
        }
        // The limit is on the two together, without the "/" between them.
        if (snprintf(joined, sizeof joined, "%s/%s", root, dir) > MAXPATHLEN + 1) {
            report_to(source.Error_fp, "%s: Path length exceeds MAXPATHLEN of %d for device [%s].\n",
                      "_mi_fix", MAXPATHLEN, entry->key);
            return nullptr;
        }
        dir = joined;
    }
    char *path = mkpath(dir).release();
    if (!path)
        report_to(source.Error_fp, "%s: Can't create full path to incoming directory for device [%s].\n",
                  "_mi_fix", entry->key);
    return path;
}

// Brings an entry into the form that callers get. Returns 0 if its directory cannot be determined, or, with
// errno ENOMEM, without memory.
static int _mi_fix(av_list_t *entry)
{
    errno = 0;
    // Information lines of direct inward dialling run at this speed, whatever the file says.
    const char *usage = av_getv(entry, "usage");
    if (usage && strstr(usage, "ondrix_did_info") && !av_put(entry, "tty_baud_rate", "9600"))
        return 0;

    c_string path(incoming_path(entry));
    if (!path || !av_put(entry, "incoming_dir", path.get()))
        return 0;

    // Kept: an entry without usage keeps it empty as long as the defaults have one, as with
    // mi_get_no_defaults.
    if (is_empty(av_getv(entry, "usage")) && is_empty(av_getv(source.defaults, "usage"))) {
        report_to(source.Error_fp, "%s: Warning: null or missing %s value.\n", "_mi_fix", "usage");
        if (!av_put(entry, "usage", "ondrix"))
            return 0;
    }
    info_set_check_value(entry);
    return 1;
}

// The open file

static av_list_t *build_defaults()
{
    av_list_ptr list(av_new("default"));
    if (!list) {
        report_to(source.Error_fp, "mi_open: av_new failed.\n");
        return nullptr;
    }
    // A relative incoming directory needs an absolute root; the installation's comes first.
    char directory[MAXPATHLEN + 1];
    const char *root = getenv("ONDRIXHOME");
    if (!root || !is_valid_root(root)) {
        root = cv_getcwd(directory, sizeof directory);
        if (!root) {
            report_to(source.Error_fp, "mi_open: getcwd failed.\n");
            return nullptr;
        }
    }
    int put = av_put(list.get(), "incoming_root", root);
    for (const modem_setting_t &row : modem_defaults)
        put = put && av_put(list.get(), row.name, row.value);
    if (!put) {
        report_to(source.Error_fp, "mi_open: av_put failed.\n");
        return nullptr;
    }
    info_set_check_value(list.get());
    return list.release();
}

list_look_t mi_look(const char *path)
{
    return source_look(source, path);
}

const char *mi_location(const char *path)
{
    return source_location(source, path);
}

int mi_open(const char *path, FILE *error_stream)
{
    if (!source_reset(source, error_stream, build_defaults))
        return 0;
    source_open_file(source, path);
    if (_mi_fix(source.defaults))
        return 1;
    const bool no_memory = errno == ENOMEM;
    report_to(source.Error_fp, "%s: Internal failure: _mi_fix.\n", "mi_open");
    // A default directory that cannot be determined concerns only the devices that have none of their own.
    if (!no_memory)
        return 1;
    mi_close();
    mi_forget();
    source.error = INFO_FAILED;
    return 0;
}

static av_list_t *_mi_get(const char *name, bool with_defaults)
{
    source.error = INFO_OK;
    bool is_default = name && strcmp(name, "default") == 0;
    for (;;) {
        av_list_ptr entry(is_default ? source_get_defaults(source, !with_defaults)
                                     : source_get_section(source, with_defaults, strcmp, name));
        if (!entry)
            return nullptr;
        if (_mi_fix(entry.get()))
            return entry.release();
        const bool no_memory = errno == ENOMEM;
        report_to(source.Error_fp, "%s: Internal failure: _mi_fix.\n", "_mi_get");
        if (no_memory || !is_empty(name)) {
            source.error = INFO_FAILED;
            return nullptr;
        }
        // One bad device does not hide the devices after it.
    }
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
    return source_rewind(source);
}

int mi_stale(const char *path)
{
    return source_stale(source, path);
}

void mi_forget()
{
    source.last_open = {};
}

time_t mi_last_update(const char *path)
{
    return source_last_update(source, path);
}

void mi_close()
{
    source_close(source);
}

int mi_error()
{
    return source.error;
}

FILE *mi_error_stream()
{
    return source.Error_fp;
}

}  // namespace faxtray
