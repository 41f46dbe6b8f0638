// The open file of one list, and the defaults under its entries.
#include "config/info_source.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "config/error_stream.h"
#include "util/paths.h"
#include "util/text.h"

namespace faxtray {

// The list's path: the one given, or the file found. Null if there is none.
static const char *locate(info_source_t &source, const char *path, c_string *found)
{
    path = path_or_found(path, source.file_name, found);
    source.error = path ? INFO_OK : INFO_NOT_OPEN;
    return path;
}

const char *source_location(const info_source_t &source, const char *path)
{
    static char places[3 * MAXPATHLEN];
    if (!is_empty(path))
        return path;
    char directory[MAXPATHLEN + 1] = ".";
    cv_getcwd(directory, sizeof directory);
    if (const char *home = getenv("ONDRIXHOME"))
        snprintf(places, sizeof places, "%s/%s or %s/%s", home, source.file_name, directory,
                 source.file_name);
    else
        snprintf(places, sizeof places, "%s/%s", directory, source.file_name);
    return places;
}

static list_look_t report_writer(info_source_t &source)
{
    static constexpr time_t patience = 30;  // seconds; editors are done sooner
    const time_t now = time(nullptr);
    if (source.written_since == 0)
        source.written_since = now;
    // Nobody may have looked when the writer came, but it has been there since the last change.
    const time_t since = std::min(source.written_since, source.read.status.st_mtim.tv_sec);
    const bool news = !source.writer_reported && now - since >= patience;
    source.writer_reported = source.writer_reported || news;
    return {EBUSY, news};
}

list_look_t source_look(info_source_t &source, const char *path)
{
    c_string found;
    path = locate(source, path, &found);
    source.read = {};
    source.read_error = path ? read_steady(path, source.last, &source.read) : ENOENT;
    if (source.read_error == EBUSY)
        return report_writer(source);
    source.written_since = 0;
    source.writer_reported = false;
    const struct timespec &mtime = source.read.status.st_mtim;
    const bool repeated = source.read_error == source.failure && mtime.tv_sec == source.failed.tv_sec &&
                          mtime.tv_nsec == source.failed.tv_nsec;
    return {source.read_error, !repeated};
}

// What the last look has read stays.
static void close_file(info_source_t &source)
{
    info_close(&source.fp, &source.defaults, &source.init_defaults);
    source.Error_fp = nullptr;
}

int source_reset(info_source_t &source, FILE *error_stream, av_list_t *(*build)())
{
    close_file(source);
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
    if (source.read_error < 0)
        source_look(source, path);
    source.failure = std::exchange(source.read_error, -1);
    source.failed = source.read.status.st_mtim;
    if (source.failure == 0)
        source.last = source.read.status;

    c_string found;
    path = locate(source, path, &found);
    if (!path) {
        report_to(source.Error_fp, "%s_open: Can't find default file: [%s].\n", source.prefix,
                  source.file_name);
        return false;
    }
    source.fp = info_open_copy(path, source.failure, std::move(source.read), &source.defaults,
                               &source.last_open, source.Error_fp);
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
    close_file(source);
    source.read = {};
    source.read_error = -1;
}

}  // namespace faxtray
