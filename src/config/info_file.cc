// Reading and writing info files: lines, values, sections, and the open file.
#include "config/info_file.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <new>
#include <vector>

#include "config/error_stream.h"
#include "util/text.h"

namespace faxtray {

static int info_errno = 0;
static FILE *Error_fp = nullptr;  // where failures are told; null: nowhere
static int parse_errno = 0;       // 1 after the line reader failed

static constexpr size_t max_line = 8318;    // characters of a line; a longer one goes on as the next
static constexpr size_t max_name = 63;      // characters of an attribute name
static constexpr size_t max_raw = 8191;     // characters of a value as it stands in the file
static constexpr size_t max_value = 511;    // characters of a value as it is meant
static constexpr size_t max_written = 508;  // characters of a value as it is written, quotes aside

// Values

// What a backslash and `ch` stand for, or 0 when they stand for themselves.
static char escaped(char ch)
{
    switch (ch) {
    case 'n':
        return '\n';
    case 't':
        return '\t';
    case '\\':
    case '"':
    case '#':
    case ';':
        return ch;
    default:
        return 0;
    }
}

const char *info_parse_value(const char *text)
{
    static char value[max_value + 1];
    const char *p = text ? text : "";
    while (is_space(*p))
        p++;
    bool quoted = *p == '"';
    if (quoted)
        p++;

    size_t n = 0, solid = 0;  // `solid`: up to here nothing may be trimmed
    while (n < max_value && *p && *p != ';' && *p != '#') {
        if (*p != '\\' || !p[1]) {
            value[n++] = *p++;
            if (!is_space(value[n - 1]))
                solid = n;
            continue;
        }
        if (char meant = escaped(p[1])) {
            value[n++] = meant;
        } else {
            value[n++] = '\\';
            if (n < max_value)
                value[n++] = p[1];
        }
        p += 2;
        solid = n;
    }
    bool cut = n == max_value && *p;

    n = solid;
    if (quoted && n > 0 && value[n - 1] == '"')
        n--;
    value[n] = '\0';
    if (cut)
        report_to(Error_fp, "%s: Truncated [%s] to [%s]\n", "info_parse_value", text, value);
    return value;
}

// The letter that stands behind a backslash for `ch`, or 0 when `ch` is written as it is.
static char escape_for(char ch)
{
    switch (ch) {
    case '\t':
        return 't';
    case '\n':
        return 'n';
    case '"':
    case '#':
    case ';':
    case '\\':
        return ch;
    default:
        return 0;
    }
}

const char *info_unparse_value(const char *value)
{
    static char text[max_value + 1];
    if (!value || !*value)
        return "";

    // Room stays at the front for a quote.
    char *out = text + 1;
    size_t n = 0;
    size_t limit = is_space(*value) ? max_written - 1 : max_written;
    for (const char *p = value; *p && n < limit; p++) {
        char letter = escape_for(*p);
        if (letter)
            out[n++] = '\\';
        out[n++] = letter ? letter : *p;
    }
    bool reached = n >= limit;
    if (is_space(*value) || is_space(value[strlen(value) - 1])) {
        *--out = '"';
        n++;
        out[n++] = '"';
    }
    out[n] = '\0';
    if (reached)
        report_to(Error_fp, "%s: Truncated [%s] to [%s]\n", "info_unparse_value", value, out);
    return out;
}

// Lines

// Reads a line and points `*text` at its first character that is not white space, its end cut; at ""
// for a line to be ignored. The text is valid until the next line. 1, 0 at the end, -1 on failure.
static int get_next_line(FILE *file, char **text)
{
    static char line[max_line + 2];
    if (!fgets(line, max_line + 1, file)) {
        if (feof(file))
            return 0;
        fprintf(stderr, "get_next_line: fgets failure: %s.\n", strerror(errno));
        return -1;
    }
    *text = rm_leading_whitespace(line);
    (*text)[strcspn(*text, "\r\n")] = '\0';
    if (**text == '#')
        **text = '\0';
    return 1;
}

// The key of a section line, cut out of `text`, or null when it is none.
static char *is_key(char *text)
{
    if (*text != '[')
        return nullptr;
    char *end = strchr(text, ']');
    if (!end) {
        fprintf(stderr, "is_key: Warning: Ignoring unterminated entry: [%s].\n", text);
        return nullptr;
    }
    *end = '\0';
    char *key = rm_leading_whitespace(text + 1);
    rm_trailing_whitespace(key);
    return key;
}

static size_t name_length(const char *text)
{
    size_t n = 0;
    while (isalnum(static_cast<unsigned char>(text[n])) || text[n] == '_')
        n++;
    return n;
}

// The attribute of a line whose name is `n` characters long. What exceeds a limit is cut off.
static av_node_t *parse_attribute(char *text, size_t n, bool raw)
{
    char *value = rm_leading_whitespace(text + n);
    value = *value == '=' ? rm_leading_whitespace(value + 1) : value + strlen(value);
    if (strlen(value) > max_raw)
        value[max_raw] = '\0';

    char name[max_name + 1] = "";
    memcpy(name, text, std::min(n, max_name));
    return new_av_node(name, raw ? value : info_parse_value(value));
}

// Sections

// Sorts a chain as it stood in the file by name; of nodes of one name the last stays. 0 without memory.
static int sort_nodes(av_node_t **chain)
{
    std::vector<av_node_t *> nodes;
    try {
        for (av_node_t *node = *chain; node; node = node->next)
            nodes.push_back(node);
    } catch (const std::bad_alloc &) {
        return 0;
    }
    std::stable_sort(nodes.begin(), nodes.end(),
                     [](const av_node_t *a, const av_node_t *b) { return strcmp(a->attr, b->attr) < 0; });

    av_node_t *behind = nullptr;
    for (auto place = nodes.rbegin(); place != nodes.rend(); ++place) {
        av_node_t *node = *place;
        node->next = nullptr;
        if (behind && strcmp(node->attr, behind->attr) == 0) {
            free_av_node(node);
        } else {
            node->next = behind;
            behind = node;
        }
    }
    *chain = behind;
    return 1;
}

// Reads the attribute lines of a section whose section line has just been read, and leaves the file at
// the next section line. Returns 1, or 0 on failure.
static int load_av(FILE *file, av_list_t *list)
{
    bool raw = strncmp(list->key, "__", 2) == 0;
    bool sorted = true;
    av_node_t *last = nullptr;
    for (;;) {
        long start = ftell(file);
        if (start < 0) {
            fprintf(stderr, "load_av: Can't determine file position: %s.\n", strerror(errno));
            return 0;
        }
        char *text;
        int got = get_next_line(file, &text);
        if (got < 0) {
            fprintf(stderr, "load_av: Problem reading user info file.\n");
            return 0;
        }
        if (got == 0)
            break;
        if (!*text)
            continue;
        if (is_key(text)) {
            if (fseek(file, start, SEEK_SET) != 0) {
                fprintf(stderr, "load_av: Can't set file position: %s.\n", strerror(errno));
                return 0;
            }
            break;
        }
        size_t n = name_length(text);
        if (n == 0) {
            // Kept: one bad line drops the rest of its section; the manual page warns of it.
            fprintf(stderr, "load_av: Ignoring bad entry: [%s].\n", text);
            break;
        }
        av_node_t *node = parse_attribute(text, n, raw);
        if (!node) {
            fprintf(stderr, "load_av: Can't create new av node.\n");
            return 0;
        }
        sorted = sorted && (!last || strcmp(last->attr, node->attr) < 0);
        (last ? last->next : list->nodes) = node;
        last = node;
    }
    if (!sorted && !sort_nodes(&list->nodes)) {
        fprintf(stderr, "load_av: Can't create new av node.\n");
        return 0;
    }
    return 1;
}

av_list_t *get_row(FILE *file)
{
    parse_errno = 1;
    char *text, *key = nullptr;
    int got;
    while ((got = get_next_line(file, &text)) > 0 && !(key = is_key(text)))
        ;
    if (got < 0) {
        fprintf(stderr, "get_row: Problem reading info file.\n");
        return nullptr;
    }
    if (got == 0) {
        parse_errno = 0;
        return nullptr;
    }
    av_list_ptr list(av_new(key));
    if (!list) {
        fprintf(stderr, "get_row: Out of memory.\n");
        return nullptr;
    }
    if (!load_av(file, list.get())) {
        fprintf(stderr, "get_row: Problem reading info file.\n");
        return nullptr;
    }
    parse_errno = 0;
    return list.release();
}

int parse_error()
{
    return parse_errno;
}

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
    uint32_t sum = 0;  // wraps as the signed value on record does
    for (const av_node_t *node = list->nodes; node; node = node->next)
        sum += sum_of_signed_bytes(node->attr) + sum_of_signed_bytes(node->value);
    list->check_value = static_cast<int32_t>(sum);
}

av_list_t *info_merge(av_list_t *list, const av_list_t *defaults)
{
    if (!list) {
        report_to(Error_fp, "%s: Can't merge null a-v list.\n", "info_merge");
        info_errno = 1;
        return nullptr;
    }
    // Both chains are sorted by name: walked side by side, each default finds its place.
    av_node_t **link = &list->nodes;
    for (const av_node_t *node = defaults ? defaults->nodes : nullptr; node; node = node->next) {
        int order = 1;
        while (*link && (order = strcmp((*link)->attr, node->attr)) < 0)
            link = &(*link)->next;
        if (*link && order == 0)
            continue;
        av_node_t *copy = new_av_node(node->attr, node->value);
        if (!copy) {
            report_to(Error_fp, "%s: Can't copy info defaults.\n", "info_merge");
            info_errno = 1;
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
        report_to(Error_fp, "%s: Can't split null a-v list.\n", "info_strip");
        info_errno = 1;
        return nullptr;
    }
    av_list_ptr kept(av_new(list->key));
    if (!kept) {
        report_to(Error_fp, "%s: av_new failure.\n", "info_strip");
        info_errno = 1;
        return nullptr;
    }
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
            report_to(Error_fp, "%s: av_put failure.\n", "info_strip");
            info_errno = 1;
            return nullptr;
        }
        end = &(*end)->next;
    }
    std::swap(list->nodes, kept->nodes);
    info_set_check_value(list);
    return list;
}

// Writing

int info_write(FILE *file, const av_list_t *list)
{
    if (!file) {
        report_to(Error_fp, "%s: Null FILE pointer\n", "info_write");
        info_errno = 2;
        return 0;
    }
    if (!list) {
        report_to(Error_fp, "%s: Null a-v list\n", "info_write");
        info_errno = 3;
        return 0;
    }
    if (!list->key || !*list->key) {
        report_to(Error_fp, "%s: Null a-v list key\n", "info_write");
        info_errno = 4;
        return 0;
    }
    bool raw = strncmp(list->key, "__", 2) == 0;
    int written = fprintf(file, "\n[%s]\n", list->key);
    for (const av_node_t *node = list->nodes; node && written >= 0; node = node->next) {
        if (*node->value)
            written =
                fprintf(file, "\t%s = %s\n", node->attr, raw ? node->value : info_unparse_value(node->value));
        else
            written = fprintf(file, "\t%s =\n", node->attr);
    }
    if (written < 0) {
        info_errno = 1;
        return 0;
    }
    return 1;
}

int info_write_list(FILE *file, const av_list_t *table)
{
    for (; table; table = table->next) {
        if (info_write(file, table))
            continue;
        switch (info_errno) {
        case 4:
            report_to(Error_fp, "%s: Warning: Ignoring null key.\n", "info_write_list");
            continue;
        case 3:
            report_to(Error_fp, "%s: Null file av list.\n", "info_write_list");
            return 0;
        case 2:
            report_to(Error_fp, "%s: Null file pointer.\n", "info_write_list");
            return 0;
        default:
            report_to(Error_fp, "%s: Unknown info_write failure.\n", "info_write_list");
            return 0;
        }
    }
    return 1;
}

// The open file

// For reading and writing where that is allowed. Only a file: a pipe or device might never end.
static file_ptr open_file(const char *path)
{
    struct stat st;
    if (stat(path, &st) == 0 && !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) {
        errno = EINVAL;
        return nullptr;
    }
    FILE *file = fopen(path, "r+be");
    return file_ptr(file ? file : fopen(path, "rbe"));
}

FILE *info_open(const char *path, av_list_t **defaults, struct timespec *mtime, FILE *error_stream)
{
    info_errno = 0;
    Error_fp = error_stream;
    *mtime = {};

    file_ptr file = open_file(path);
    if (!file) {
        info_errno = errno;
        report_to(Error_fp, "info_open: Can't open file [%s]: %s.\n", path, strerror(info_errno));
        return nullptr;
    }
    struct stat st;
    if (fstat(fileno(file.get()), &st) != 0) {
        info_errno = errno;
        report_to(Error_fp, "info_open: stat: stat(\"%s\"): %s\n", path, strerror(info_errno));
        return nullptr;
    }
    av_list_ptr merged(info_get(file.get(), *defaults, strcmp, "default"));
    if (!merged && info_errno != 0) {
        report_to(Error_fp, "info_open: Can't setup user defaults: info_get failed.\n");
        return nullptr;
    }
    if (fseek(file.get(), 0, SEEK_SET) != 0) {
        info_errno = errno;
        report_to(Error_fp, "info_open: Can't set file position: %s.\n", strerror(info_errno));
        return nullptr;
    }
    if (merged) {
        av_free(*defaults);
        *defaults = merged.release();
    }
    *mtime = st.st_mtim;
    return file.release();
}

av_list_t *info_get(FILE *file, const av_list_t *defaults, key_compare cmp, const char *key)
{
    if (!file) {
        report_to(Error_fp, "info_get: Null file pointer.\n");
        info_errno = 1;
        return nullptr;
    }
    bool any = !key || !*key;
    if (!any && fseek(file, 0, SEEK_SET) != 0) {
        info_errno = errno;
        report_to(Error_fp, "info_get: Can't set file position: %s.\n", strerror(info_errno));
        return nullptr;
    }
    while (av_list_ptr list{get_row(file)}) {
        if (!any && cmp(key, list->key) != 0)
            continue;
        return info_merge(list.get(), defaults) ? list.release() : nullptr;
    }
    if (parse_errno != 0) {
        report_to(Error_fp, "info_get: get_row failed.\n");
        info_errno = 1;
    }
    return nullptr;
}

int info_rewind(FILE *file)
{
    if (!file) {
        report_to(Error_fp, "info_rewind: File not open.\n");
        info_errno = 2;
        return 0;
    }
    if (fseek(file, 0, SEEK_SET) != 0) {
        info_errno = errno;
        report_to(Error_fp, "info_rewind: Can't set file position: %s.\n", strerror(info_errno));
        return 0;
    }
    return 1;
}

int info_stale(const struct timespec &mtime, const char *path)
{
    info_errno = 0;
    struct stat st;
    if (stat(path, &st) != 0) {
        info_errno = errno;
        report_to(Error_fp, "%s: stat: %s\n", "info_stale", strerror(info_errno));
        return 0;
    }
    if (st.st_mtim.tv_sec != mtime.tv_sec)
        return st.st_mtim.tv_sec > mtime.tv_sec;
    return st.st_mtim.tv_nsec > mtime.tv_nsec;
}

void info_close(FILE **file, av_list_t **list_a, av_list_t **list_b)
{
    info_errno = 0;
    if (*file)
        fclose(*file);
    *file = nullptr;
    for (av_list_t **list : {list_a, list_b}) {
        av_free(*list);
        *list = nullptr;
    }
    Error_fp = nullptr;
}

int info_error()
{
    return info_errno;
}

}  // namespace faxtray
