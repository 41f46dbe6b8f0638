// The open file of one list, and the defaults under its entries.
#include "config/info_source.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "config/error_stream.h"
#include "util/paths.h"

namespace faxtray {

// The list's path: the one given, or the file found. Null if there is none.
static const char *locate(info_source_t &source, const char *path, c_string *found)
{
    path = path_or_found(path, source.file_name, found);
    source.error = path ? INFO_OK : INFO_NOT_OPEN;
    return path;
}

int source_reset(info_source_t &source, FILE *error_stream, av_list_t *(*build)())
{
    source_close(source);
    source.Error_fp = error_stream;
    source.error = INFO_OK;
    source.last_open = {};

    // Two copies: entries are merged over `defaults`, which the file may change; `init_defaults` stays what a
    // stripped entry is compared with.
    source.init_defaults = build();
    if (source.init_defaults) {
        source.defaults = av_copy(source.init_defaults);
        if (source.defaults)
            return 1;
        report_to(source.Error_fp, "%s_open: av_copy failed.\n", source.prefix);
    }
    source_close(source);
    source.error = INFO_FAILED;
    return 0;
}

bool source_open_file(info_source_t &source, const char *path)
{
    c_string found;
    path = locate(source, path, &found);
    if (!path) {
        report_to(source.Error_fp, "%s_open: Can't find default file: [%s].\n", source.prefix,
                  source.file_name);
        return false;
    }
    source.fp = info_open(path, &source.defaults, &source.last_open, source.Error_fp);
    if (!source.fp) {
        report_to(source.Error_fp, "%s_open: info_open failed.\n", source.prefix);
        source.error = INFO_FAILED;
    }
    return source.fp != nullptr;
}

av_list_t *source_get_defaults(info_source_t &source, bool stripped)
{
    av_list_ptr entry(av_copy(source.defaults));
    if (entry && (!stripped || info_strip(entry.get(), source.init_defaults)))
        return entry.release();
    report_to(source.Error_fp, "_%s_get: Can't copy %s info defaults.\n", source.prefix, source.subject);
    source.error = INFO_FAILED;
    return nullptr;
}

av_list_t *source_get_section(info_source_t &source, bool with_defaults, key_compare cmp, const char *name)
{
    if (!source.fp) {
        report_to(source.Error_fp, "_%s_get: %s info file not open.\n", source.prefix, source.title);
        source.error = INFO_NOT_OPEN;
        return nullptr;
    }
    av_list_t *entry = info_get(source.fp, with_defaults ? source.defaults : nullptr, cmp, name);
    // A look-up that finds nothing is no failure: info_get then leaves its error number alone.
    if (!entry && info_error() != INFO_OK) {
        report_to(source.Error_fp, "%s_get: info_get failure.\n", source.prefix);
        source.error = INFO_FAILED;
    }
    return entry;
}

int source_rewind(info_source_t &source)
{
    if (info_rewind(source.fp))
        return 1;
    report_to(source.Error_fp, "%s_rewind: info_rewind failure.\n", source.prefix);
    source.error = info_error();
    return 0;
}

int source_stale(info_source_t &source, const char *path)
{
    c_string found;
    path = locate(source, path, &found);
    if (!path)
        return 0;
    if (info_stale(source.last_open, path))
        return 1;
    if (info_error() != INFO_OK) {
        report_to(source.Error_fp, "%s_stale: info_stale(\"%s\") failed.\n", source.prefix, path);
        source.error = INFO_FAILED;
    }
    return 0;
}

time_t source_last_update(info_source_t &source, const char *path)
{
    c_string found;
    path = locate(source, path, &found);
    if (!path)
        return 0;
    struct stat st;
    if (stat(path, &st) != 0) {
        source.error = errno;
        report_to(source.Error_fp, "%s_last_update: stat: %s\n", source.prefix, strerror(source.error));
        return 0;
    }
    return st.st_mtime;
}

void source_close(info_source_t &source)
{
    info_close(&source.fp, &source.defaults, &source.init_defaults);
    source.Error_fp = nullptr;
}

}  // namespace faxtray
