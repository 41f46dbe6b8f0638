// Info files: merging and stripping defaults, writing sections, and the open file.
#include "config/info_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "config/error_stream.h"
#include "config/info_lines.h"
#include "util/text.h"

namespace faxtray {

static int info_errno = INFO_OK;

// Lists

static uint32_t sum_of_signed_bytes(const char *text)
{
    uint32_t sum = 0;
    for (; *text; text++)
        sum += static_cast<uint32_t>(static_cast<signed char>(*text));
    return sum;
}

void info_set_check_value(av_list_t *list)
{
    uint32_t sum = 0;  // unsigned, since it may wrap; the bits are those of the signed sum
    for (const av_node_t *node = list->nodes; node; node = node->next)
        sum += sum_of_signed_bytes(node->attr) + sum_of_signed_bytes(node->value);
    list->check_value = static_cast<int32_t>(sum);
}

av_list_t *info_merge(av_list_t *list, const av_list_t *defaults)
{
    if (!list) {
        report_to(info_error_stream(), "%s: Can't merge null a-v list.\n", "info_merge");
        info_errno = INFO_FAILED;
        return nullptr;
    }
    // Both chains are sorted by name, so one walk over both finds the place of each default.
    av_node_t **link = &list->nodes;
    for (const av_node_t *node = defaults ? defaults->nodes : nullptr; node; node = node->next) {
        int order = 1;
        while (*link && (order = strcmp((*link)->attr, node->attr)) < 0)
            link = &(*link)->next;
        if (*link && order == 0)
            continue;
        // The section does not set it: a copy of the default goes in before the first greater name.
        av_node_t *copy = new_av_node(node->attr, node->value);
        if (!copy) {
            report_to(info_error_stream(), "%s: Can't copy info defaults.\n", "info_merge");
            info_errno = INFO_FAILED;
            return nullptr;
        }
        copy->next = *link;
        *link = copy;
        link = &copy->next;
    }
    info_set_check_value(list);
    return list;
}

av_list_t *info_strip(av_list_t *list, const av_list_t *defaults)
{
    if (!list) {
        report_to(info_error_stream(), "%s: Can't split null a-v list.\n", "info_strip");
        info_errno = INFO_FAILED;
        return nullptr;
    }
    av_list_ptr kept(av_new(list->key));
    if (!kept) {
        report_to(info_error_stream(), "%s: av_new failure.\n", "info_strip");
        info_errno = INFO_FAILED;
        return nullptr;
    }
    // Both chains are sorted by name, so that one walk over both finds the default of each attribute.
    av_node_t **end = &kept->nodes;
    const av_node_t *other = defaults ? defaults->nodes : nullptr;
    for (const av_node_t *node = list->nodes; node; node = node->next) {
        int order = 1;
        while (other && (order = strcmp(other->attr, node->attr)) < 0)
            other = other->next;
        if (other && order == 0 && strcmp(other->value, node->value) == 0)
            continue;
        *end = new_av_node(node->attr, node->value);
        if (!*end) {
            report_to(info_error_stream(), "%s: av_put failure.\n", "info_strip");
            info_errno = INFO_FAILED;
            return nullptr;
        }
        end = &(*end)->next;
    }
    // Only now, when all is copied, does the list change; its old nodes are freed with `kept`.
    std::swap(list->nodes, kept->nodes);
    info_set_check_value(list);
    return list;
}

// Writing

int info_write(FILE *file, const av_list_t *list)
{
    if (!file) {
        report_to(info_error_stream(), "%s: Null FILE pointer\n", "info_write");
        info_errno = INFO_NOT_OPEN;
        return 0;
    }
    if (!list) {
        report_to(info_error_stream(), "%s: Null a-v list\n", "info_write");
        info_errno = INFO_NO_LIST;
        return 0;
    }
    if (is_empty(list->key)) {
        report_to(info_error_stream(), "%s: Null a-v list key\n", "info_write");
        info_errno = INFO_NO_KEY;
        return 0;
    }
    // Blank line, section line, attributes: as administrators write them.
    bool raw = info_is_raw(list->key);
    int written = fprintf(file, "\n[%s]\n", list->key);
    for (const av_node_t *node = list->nodes; node && written >= 0; node = node->next) {
        if (*node->value)
            written =
                fprintf(file, "\t%s = %s\n", node->attr, raw ? node->value : info_unparse_value(node->value));
        else
            written = fprintf(file, "\t%s =\n", node->attr);
    }
    if (written < 0) {
        info_errno = INFO_FAILED;
        return 0;
    }
    return 1;
}

int info_write_list(FILE *file, const av_list_t *table)
{
    for (; table; table = table->next) {
        if (info_write(file, table))
            continue;
        // A section without a name cannot be written, but need not keep the others from being written.
        switch (info_errno) {
        case INFO_NO_KEY:
            report_to(info_error_stream(), "%s: Warning: Ignoring null key.\n", "info_write_list");
            continue;
        case INFO_NO_LIST:
            report_to(info_error_stream(), "%s: Null file av list.\n", "info_write_list");
            return 0;
        case INFO_NOT_OPEN:
            report_to(info_error_stream(), "%s: Null file pointer.\n", "info_write_list");
            return 0;
        default:
            report_to(info_error_stream(), "%s: Unknown info_write failure.\n", "info_write_list");
            return 0;
        }
    }
    return 1;
}

// The open file

FILE *info_open(const char *path, av_list_t **defaults, struct timespec *mtime, FILE *error_stream)
{
    steady_copy_t copy;
    const int error = read_steady(path, {}, &copy);
    return info_open_copy(path, error, std::move(copy), defaults, mtime, error_stream);
}

FILE *info_open_copy(const char *path, int error, steady_copy_t copy, av_list_t **defaults,
                     struct timespec *mtime, FILE *error_stream)
{
    info_errno = error;
    info_set_error_stream(error_stream);
    *mtime = {};
    if (error != 0) {
        report_to(info_error_stream(), "info_open: Can't open file [%s]: %s.\n", path, strerror(error));
        return nullptr;
    }
    // The file's "default" section replaces the caller's defaults only once nothing can fail any more.
    av_list_ptr merged(info_get(copy.file.get(), *defaults, strcmp, "default"));
    if (!merged && info_errno != INFO_OK) {
        report_to(info_error_stream(), "info_open: Can't setup user defaults: info_get failed.\n");
        return nullptr;
    }
    if (fseek(copy.file.get(), 0, SEEK_SET) != 0) {
        info_errno = errno;
        report_to(info_error_stream(), "info_open: Can't set file position: %s.\n", strerror(info_errno));
        return nullptr;
    }
    if (merged) {
        av_free(*defaults);
        *defaults = merged.release();
    }
    *mtime = copy.status.st_mtim;
    return copy.file.release();
}

av_list_t *info_get(FILE *file, const av_list_t *defaults, key_compare cmp, const char *key)
{
    if (!file) {
        report_to(info_error_stream(), "info_get: Null file pointer.\n");
        info_errno = INFO_FAILED;
        return nullptr;
    }
    bool any = is_empty(key);
    if (!any && fseek(file, 0, SEEK_SET) != 0) {
        info_errno = errno;
        report_to(info_error_stream(), "info_get: Can't set file position: %s.\n", strerror(info_errno));
        return nullptr;
    }
    // Sections are read one at a time and dropped until the wanted one: a list may have twenty thousand.
    while (av_list_ptr list{get_row(file)}) {
        if (!any && cmp(key, list->key) != 0)
            continue;
        return info_merge(list.get(), defaults) ? list.release() : nullptr;
    }
    if (parse_error() != 0) {
        report_to(info_error_stream(), "info_get: get_row failed.\n");
        info_errno = INFO_FAILED;
    }
    return nullptr;
}

int info_rewind(FILE *file)
{
    if (!file) {
        report_to(info_error_stream(), "info_rewind: File not open.\n");
        info_errno = INFO_NOT_OPEN;
        return 0;
    }
    if (fseek(file, 0, SEEK_SET) != 0) {
        info_errno = errno;
        report_to(info_error_stream(), "info_rewind: Can't set file position: %s.\n", strerror(info_errno));
        return 0;
    }
    return 1;
}

int info_stale(const struct timespec &mtime, const char *path)
{
    info_errno = INFO_OK;
    struct stat st;
    if (stat(path, &st) != 0) {
        info_errno = errno;
        report_to(info_error_stream(), "%s: stat: %s\n", "info_stale", strerror(info_errno));
        return 0;
    }
    // To the nanosecond: two edits may happen within one second.
    if (st.st_mtim.tv_sec != mtime.tv_sec)
        return st.st_mtim.tv_sec > mtime.tv_sec;
    return st.st_mtim.tv_nsec > mtime.tv_nsec;
}

void info_close(FILE **file, av_list_t **list_a, av_list_t **list_b)
{
    info_errno = INFO_OK;
    if (*file)
        fclose(*file);
    *file = nullptr;
    for (av_list_t **list : {list_a, list_b}) {
        av_free(*list);
        *list = nullptr;
    }
    info_set_error_stream(nullptr);
}

int info_error()
{
    return info_errno;
}

}  // namespace faxtray
