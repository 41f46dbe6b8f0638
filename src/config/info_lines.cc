// Values, lines and sections: everything about the format that needs no more than the text.
#include "config/info_lines.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <new>
#include <vector>

#include "config/error_stream.h"
#include "util/text.h"

namespace faxtray {

static FILE *Error_fp = nullptr;  // where failures are reported; null: nowhere
static int parse_errno = 0;       // 1 after the line reader failed

static info_observer observer;  // empty: nobody listens, and places are not counted
static struct {
    long line;     // the number of the line read last
    bool goes_on;  // it was too long: what is read next is its rest
} reading;

static constexpr size_t max_line = 8318;    // characters of a line; the rest of a longer one is the next line
static constexpr size_t max_name = 63;      // characters of an attribute name
static constexpr size_t max_raw = 8191;     // characters of a value as written in the file
static constexpr size_t max_value = 511;    // characters of a value after unescaping
static constexpr size_t max_written = 508;  // characters of a value after escaping, without the quotes

void info_set_error_stream(FILE *stream)
{
    Error_fp = stream;
}

FILE *info_error_stream()
{
    return Error_fp;
}

void info_observe(info_observer new_observer)
{
    observer = std::move(new_observer);
}

static void tell(info_event what, const char *text, const char *value = "")
{
    if (observer)
        observer({what, reading.line, text, value});
}

// Where faults of lines are reported.
static FILE *complaints()
{
    return observer ? nullptr : stderr;
}

bool info_is_raw(const char *key)
{
    return strncmp(key, "__", 2) == 0;
}

// Values

// The character that a backslash and `ch` mean, or 0 if they mean themselves.
static char unescaped(char ch)
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

// Of the value parsed last.
static struct {
    bool cut, comment, quote;  // as the events
} faults;

const char *info_parse_value(const char *text)
{
    static char value[max_value + 1];
    // Leading blanks never count; those after an opening quote do.
    const char *p = text ? text : "";
    while (is_space(*p))
        p++;
    const char *const begin = p;
    bool quoted = *p == '"';
    if (quoted)
        p++;

    // A comment ends the value even inside quotes. White space at the end is trimmed, but only as far as
    // `solid`: what follows an escape, or is one, was meant.
    size_t n = 0, solid = 0;
    while (n < max_value && *p && *p != ';' && *p != '#') {
        if (*p != '\\' || !p[1]) {
            value[n++] = *p++;
            if (!is_space(value[n - 1]))
                solid = n;
            continue;
        }
        // Kept: an unknown escape stays as it is, backslash and all. The limit may cut it in two.
        const char meant = unescaped(p[1]);
        value[n++] = meant ? meant : *p;
        p++;
        if (meant)
            p++;
        else if (n < max_value)
            value[n++] = *p++;
        solid = n;
    }
    const bool closed = solid > 0 && value[solid - 1] == '"';
    faults.cut = n == max_value && *p;
    faults.comment = !faults.cut && *p && p > begin && !is_space(p[-1]) && !(quoted && closed);
    faults.quote = quoted && !closed;

    // The closing quote is removed only now, since it protected the blanks before it from being trimmed.
    n = solid;
    if (quoted && closed)
        n--;
    value[n] = '\0';
    if (faults.cut)
        report_to(Error_fp, "%s: Truncated [%s] to [%s]\n", "info_parse_value", text, value);
    return value;
}

// The letter written after a backslash for `ch`, or 0 if `ch` needs no escape.
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

    // The first byte is left free for an opening quote, which is added when the end is known.
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
    // Blanks at either end survive reading only inside quotes. Kept: the value's own last character decides,
    // even if it was cut off.
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

// Counts the line just read into `line`, all of whose `size` bytes were 1 before, and tells what befalls it.
// A 1 behind the terminator shows where the line ends even if null bytes are in it.
static void note_line(FILE *file, const char *line, size_t size)
{
    if (!reading.goes_on)
        reading.line++;
    const char *end = static_cast<const char *>(memrchr(line, '\0', size));
    const char *shown_end = line + strcspn(line, "\r\n");
    const bool crlf = end - shown_end == 2 && memcmp(shown_end, "\r\n", 2) == 0;
    if (end - shown_end > 1 && !crlf)
        tell(info_event::ENDS_EARLY, line);
    reading.goes_on = end[-1] != '\n';
    const int next = reading.goes_on ? getc(file) : EOF;
    if (next == EOF)
        return;
    ungetc(next, file);
    if (next != '\n' && next != '\r')
        tell(info_event::TOO_LONG, line);
}

// Reads a line without its end and points `*text` at its first character that is not white space, or at ""
// if the line is to be ignored. The text is valid until the next call. Returns 1, 0 at the end of the file,
// or -1 on failure.
static int get_next_line(FILE *file, char **text)
{
    static char line[max_line + 2];
    if (observer)
        memset(line, 1, sizeof line);
    if (!fgets(line, max_line + 1, file)) {
        if (feof(file))
            return 0;
        fprintf(stderr, "get_next_line: fgets failure: %s.\n", strerror(errno));
        return -1;
    }
    if (observer)
        note_line(file, line, sizeof line);
    *text = rm_leading_whitespace(line);
    (*text)[strcspn(*text, "\r\n")] = '\0';
    if (**text == '#')
        **text = '\0';
    return 1;
}

// The key of a section line, cut out of `text`, or null if this is no section line. `rest` gets what follows
// the "]".
static char *section_key(char *text, char **rest)
{
    if (*text != '[')
        return nullptr;
    char *end = strchr(text, ']');
    if (!end) {
        // Kept: the line then counts as an attribute line, where it ends the section.
        report_to(complaints(), "is_key: Warning: Ignoring unterminated entry: [%s].\n", text);
        return nullptr;
    }
    *end = '\0';
    *rest = rm_leading_whitespace(end + 1);
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

// Tells of an attribute as it is kept. `tail` is what follows the name in the line.
static void tell_attribute(const av_node_t *node, size_t name_length, const char *tail, bool raw)
{
    tell(info_event::ATTRIBUTE, node->attr, node->value);
    if (name_length > max_name)
        tell(info_event::NAME_CUT, node->attr);
    if (*tail && !strchr("=;#", *tail))
        tell(info_event::NO_EQUALS, node->attr);
    else if (*tail == '=' && !raw && faults.cut)
        tell(info_event::VALUE_CUT, node->attr, node->value);
    else if (*tail == '=' && !raw && faults.comment)
        tell(info_event::COMMENT, node->attr, node->value);
    else if (*tail == '=' && !raw && faults.quote)
        tell(info_event::QUOTE, node->attr, node->value);
}

// The attribute in a line whose name has `n` characters. Whatever exceeds a limit is cut off.
static av_node_t *parse_attribute(char *text, size_t n, bool raw)
{
    // Anything but "=" after the name means no value; what is there is ignored.
    char *const tail = rm_leading_whitespace(text + n);
    char *value = *tail == '=' ? rm_leading_whitespace(tail + 1) : tail + strlen(tail);
    if (strlen(value) > max_raw)
        value[max_raw] = '\0';

    // A longer name is cut, not refused: two that agree so far are one attribute.
    char name[max_name + 1] = "";
    memcpy(name, text, std::min(n, max_name));
    av_node_t *node = new_av_node(name, raw ? value : info_parse_value(value));
    if (node && observer)
        tell_attribute(node, n, tail, raw);
    return node;
}

// Sections

// Sorts a chain that is in file order by name; of several nodes with one name the last is kept. Returns 0
// when out of memory.
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

    // Relinks from the end, so that the last of equal names is met first and the earlier ones are freed.
    av_node_t *rest = nullptr;
    for (auto place = nodes.rbegin(); place != nodes.rend(); ++place) {
        av_node_t *node = *place;
        node->next = nullptr;
        if (rest && strcmp(node->attr, rest->attr) == 0) {
            free_av_node(node);
        } else {
            node->next = rest;
            rest = node;
        }
    }
    *chain = rest;
    return 1;
}

// Reads the attribute lines of a section whose section line has just been read, and leaves the file at the
// next section line. Returns 1, or 0 on failure. Nodes are collected in file order and sorted at the end if
// need be: inserting each in its place would make a section of 100,000 lines quadratic.
static int load_av(FILE *file, av_list_t *list)
{
    bool raw = info_is_raw(list->key);
    bool sorted = true;
    av_node_t *last = nullptr;
    for (;;) {
        // Remembered so that the section line that ends this section can be read again by the next call.
        const auto before = reading;
        long start = ftell(file);
        if (start < 0) {
            fprintf(stderr, "load_av: Can't determine file position: %s.\n", strerror(errno));
            return 0;
        }
        char *text, *rest;
        int got = get_next_line(file, &text);
        if (got < 0) {
            fprintf(stderr, "load_av: Problem reading user info file.\n");
            return 0;
        }
        if (got == 0)
            break;
        if (!*text)
            continue;
        if (section_key(text, &rest)) {
            reading = before;
            if (fseek(file, start, SEEK_SET) != 0) {
                fprintf(stderr, "load_av: Can't set file position: %s.\n", strerror(errno));
                return 0;
            }
            break;
        }
        size_t n = name_length(text);
        if (n == 0) {
            // Kept: one bad line drops the rest of its section; the manual page warns of it.
            report_to(complaints(), "load_av: Ignoring bad entry: [%s].\n", text);
            tell(*text == '[' ? info_event::NO_BRACKET : info_event::NO_NAME, text);
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
    parse_errno = 1;  // until the section is whole
    if (observer && ftell(file) == 0)
        reading = {};
    char *text, *rest = nullptr, *key = nullptr;
    int got;
    // Lines before the first section, or after a bad line in the last one, belong to none.
    while ((got = get_next_line(file, &text)) > 0 && !(key = section_key(text, &rest)))
        if (*text)
            tell(*text == '[' ? info_event::NO_BRACKET : info_event::DROPPED, text);
    if (got < 0) {
        fprintf(stderr, "get_row: Problem reading info file.\n");
        return nullptr;
    }
    if (got == 0) {
        parse_errno = 0;
        return nullptr;
    }
    tell(info_event::SECTION, key);
    if (*rest && !strchr(";#", *rest))
        tell(info_event::AFTER_KEY, rest);
    // The key points into the line buffer, so it is copied before the next line is read.
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

}  // namespace faxtray
