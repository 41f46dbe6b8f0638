// Reads and writes the header of a fax file. each_attribute parses the text block and prints nothing; both
// the index scan (find_fax_header_values) and read_fax_header use it, and word their own errors.
#include "faxfile/fax_header.h"

#include <endian.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <map>
#include <new>
#include <string_view>
#include <utility>

#include "faxfile/fax_params.h"
#include "util/io.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

using std::string_view;

static constexpr size_t preamble_size = 8;
static constexpr char terminator = 0x1D;

// Kept: on both streams; operators watch the one, scripts read the other.
__attribute__((format(printf, 1, 2))) static void complain(const char *format, ...)
{
    for (FILE *stream : {stderr, stdout}) {
        va_list args;
        va_start(args, format);
        vfprintf(stream, format, args);
        va_end(args);
    }
}

// Attributes

// A node with copies of both, or null without memory.
static fax_header_t *make_node(string_view name, string_view value)
{
    c_string name_copy(strndup(name.data(), name.size()));
    c_string value_copy(strndup(value.data(), value.size()));
    auto *node = static_cast<fax_header_t *>(calloc(1, sizeof(fax_header_t)));
    if (!name_copy || !value_copy || !node) {
        free(node);
        return nullptr;
    }
    node->name = name_copy.release();
    node->value = value_copy.release();
    return node;
}

// The old value stays if there is no memory for the new one.
static bool replace_value(fax_header_t *node, string_view value)
{
    char *copy = strndup(value.data(), value.size());
    if (!copy)
        return false;
    free(node->value);
    node->value = copy;
    return true;
}

fax_header_t *new_fax_header(const char *name, const char *value)
{
    if (!name || !*name) {
        complain("new_fax_header: Ignoring null attr\n");
        return nullptr;
    }
    fax_header_t *node = make_node(name, value ? value : "");
    if (!node)
        complain("new_fax_header: Out of memory\n");
    return node;
}

int free_fax_header(fax_header_t *list)
{
    while (list) {
        fax_header_t *next = list->next;
        free(list->name);
        free(list->value);
        free(list);
        list = next;
    }
    return 1;
}

const char *get_fax_header_value(const fax_header_t *list, const char *name)
{
    for (; name && list; list = list->next)
        if (strcmp(list->name, name) == 0)
            return list->value;
    return nullptr;
}

int set_fax_header_av(fax_header_t *list, const char *name, const char *value)
{
    if (!list)
        return -1;
    if (!name || !*name) {
        complain("new_fax_header: Ignoring null attr\n");  // Kept: in that function's name
        return -1;
    }
    // Stops at the node of that name, or at the last.
    fax_header_t *node = list;
    while (strcmp(node->name, name) != 0 && node->next)
        node = node->next;
    bool stored;
    if (strcmp(node->name, name) == 0)
        stored = replace_value(node, value ? value : "");
    else
        stored = (node->next = new_fax_header(name, value)) != nullptr;
    if (!stored)
        complain("set_fax_header_av: Out of memory\n");
    return stored ? 1 : -1;
}

static void complain_bad_pair(const char *pair)
{
    // Kept: "set_fax_header_var", here and below, though no
    // function has that name; scripts search logs for it.
    complain("set_fax_header_var: Bad attr-value pair: [%s]\n", pair);
}

int set_fax_header_string(fax_header_t *list, const char *pair)
{
    const char *colon = pair ? strchr(pair, ':') : nullptr;
    if (!colon) {
        complain_bad_pair(shown(pair));
        return -1;
    }
    // The value is what follows the first colon, further colons included.
    c_string name(strndup(pair, static_cast<size_t>(colon - pair)));
    if (!name) {
        complain("set_fax_header_var: Out of memory\n");
        return -1;
    }
    return set_fax_header_av(list, name.get(), colon + 1);
}

// Reading

namespace {

// Builds a list without the searches of set_fax_header_av, which would take time quadratic in the number of
// attributes: a file from outside may have any number. Appends at a tail, and looks names up in an index once
// there are many.
class header_builder {
public:
    header_builder() = default;
    ~header_builder() { free_fax_header(first_); }
    header_builder(const header_builder &) = delete;
    header_builder &operator=(const header_builder &) = delete;

    // A name that occurs twice keeps its first place and takes the later value. False without memory.
    bool put(string_view name, string_view value)
    {
        if (fax_header_t *node = find(name))
            return replace_value(node, value);
        *tail_ = make_node(name, value);
        if (!*tail_)
            return false;
        fax_header_t *node = *tail_;
        tail_ = &node->next;
        return remember(node);
    }

    fax_header_t *release() { return std::exchange(first_, nullptr); }

private:
    static constexpr size_t many = 32;  // up to here, as in every real header, a walk is faster than an index

    fax_header_t *find(string_view name) const
    {
        if (count_ >= many) {
            // The index is complete: put() enters every node.
            auto found = index_.find(name);
            return found == index_.end() ? nullptr : found->second;
        }
        fax_header_t *node = first_;
        while (node && name != node->name)
            node = node->next;
        return node;
    }

    // Enters the new node into the index, or all of them once there are many. False without memory.
    bool remember(fax_header_t *node)
    {
        if (++count_ < many)
            return true;
        try {
            for (node = index_.empty() ? first_ : node; node; node = node->next)
                index_.emplace(node->name, node);
        } catch (const std::bad_alloc &) {
            return false;
        }
        return true;
    }

    fax_header_t *first_ = nullptr, **tail_ = &first_;
    size_t count_ = 0;
    std::map<string_view, fax_header_t *> index_;  // complete from `many` attributes on, else empty
};

// Why a text block was refused. `empty`: it has no attribute.
enum class fault { none, bad_pair, no_memory, empty };

}  // namespace

// Calls `put` with the name and value of each attribute of a text block, given without its terminator, until
// it returns false for lack of memory. A line ends at its line feed, or at a NUL before it. A line without a
// colon ends the walk; it is then stored in *bad. Kept: a line with an empty name is skipped, since fax files
// with such lines are read.
template <class Put> static fault each_attribute(string_view text, string_view *bad, Put put)
{
    bool any = false;
    while (!text.empty()) {
        // Cut off a line. The last may lack its line feed.
        string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
        line = line.substr(0, line.find('\0'));
        if (line.empty())
            continue;
        size_t colon = line.find(':');
        if (colon == line.npos) {
            *bad = line;
            return fault::bad_pair;
        }
        if (colon == 0)
            continue;
        if (!put(line.substr(0, colon), line.substr(colon + 1)))
            return fault::no_memory;
        any = true;
    }
    return any ? fault::none : fault::empty;
}

// The number in four bytes, at any address.
static uint32_t big_endian(const char *bytes)
{
    uint32_t word;
    memcpy(&word, bytes, sizeof word);
    return be32toh(word);
}

// The text block, without its terminator, of a file that begins with these bytes; empty if not all of it is
// among them, or if this is no sound fax file.
static string_view text_block(const char *file, size_t n)
{
    if (n <= preamble_size || big_endian(file) != FAX_MAGIC)
        return {};
    size_t length = big_endian(file + 4);
    if (length == 0 || length > max_header_text || length > n - preamble_size ||
        file[preamble_size + length - 1] != terminator)
        return {};
    return string_view(file + preamble_size, length - 1);
}

// Finds the values of `count` names in a text block and puts a NUL after each, over its line feed or whatever
// ends it. Of a name that occurs twice the later value counts, as in a list.
static fault find_values(char *bytes, string_view text, const char *const *names, const char **values,
                         size_t count)
{
    std::fill_n(values, count, nullptr);
    string_view bad;
    return each_attribute(text, &bad, [&](string_view name, string_view value) {
        const char *const *wanted = std::find(names, names + count, name);
        if (wanted != names + count) {
            values[wanted - names] = value.data();
            bytes[value.data() + value.size() - bytes] = '\0';
        }
        return true;
    });
}

bool find_fax_header_values(char *bytes, size_t n, const char *const *names, const char **values,
                            size_t count)
{
    return find_values(bytes, text_block(bytes, n), names, values, count) == fault::none;
}

// Reads the preamble at the start of the file. Returns the length of the text block, or 0 with a message.
static size_t read_text_length(int fd)
{
    // The order of the tests is that of the messages: the first that fails is the one reported.
    if (lseek(fd, 0, SEEK_SET) < 0) {
        complain("read_fax_header: Can't rewind file: %s\n", strerror(errno));
        return 0;
    }
    char preamble[preamble_size];
    const ssize_t got = read_full(fd, preamble, sizeof preamble);
    if (got < 0) {
        complain("read_fax_header: Bad fax file: %s\n", strerror(errno));
        return 0;
    }
    if (got < static_cast<ssize_t>(sizeof preamble)) {
        complain("read_fax_header: Bad fax file: Too Small\n");
        return 0;
    }
    if (big_endian(preamble) != FAX_MAGIC) {
        complain("read_fax_header: Bad fax file: Bad Magic Number\n");
        return 0;
    }
    size_t length = big_endian(preamble + 4);
    if (length == 0)
        complain("read_fax_header: Bad fax file: Bad Header length\n");
    return length;
}

// True if a text block of that length is not too long, and ends with its terminator. Asked before memory is
// allocated: a sparse file of a few disk blocks can claim any length.
static bool is_sound_length(int fd, size_t length)
{
    char last = 0;
    return length <= max_header_text &&
           pread(fd, &last, 1, static_cast<off_t>(preamble_size + length - 1)) == 1 && last == terminator;
}

// Reads the text block and puts a NUL in the place of its terminator. Null with a message.
static c_string read_text(int fd, size_t length)
{
    if (!is_sound_length(fd, length)) {
        complain("read_fax_header: Bad fax file: Corrupted header\n");
        return nullptr;
    }
    c_string text(static_cast<char *>(malloc(length)));
    if (!text) {
        complain("read_fax_header: Out of memory\n");
        return nullptr;
    }
    char *end = text.get() + length - 1;
    if (read_full(fd, text.get(), length) != static_cast<ssize_t>(length) || *end != terminator) {
        complain("read_fax_header: Bad fax file: Corrupted header\n");
        return nullptr;
    }
    *end = '\0';  // so that even a last line without its line feed ends
    return text;
}

// Reports a fault of the text that begins at `text`; two messages each, as if set_fax_header_string had been
// called. False if there is none.
static bool complain_of(fault found, char *text, string_view bad)
{
    switch (found) {
    case fault::none:
        return false;
    case fault::empty:
        complain("read_fax_header: Empty Header - probably corrupted\n");
        return true;
    case fault::bad_pair:
        text[bad.data() + bad.size() - text] = '\0';
        complain_bad_pair(bad.data());
        break;
    case fault::no_memory:
        complain("set_fax_header_av: Out of memory\n");
        break;
    }
    complain("read_fax_header: set_fax_header_string failure\n");
    return true;
}

// The text block, without its terminator, and its length, once every line is known to be sound: a list of
// 300,000 attributes is not built to be thrown away. Null with a message.
static c_string read_sound_text(int fd, size_t *length)
{
    *length = read_text_length(fd);
    c_string text = *length > 0 ? read_text(fd, *length) : nullptr;
    if (!text)
        return nullptr;
    string_view bad;
    const fault found =
        each_attribute({text.get(), --*length}, &bad, [](string_view, string_view) { return true; });
    return complain_of(found, text.get(), bad) ? nullptr : std::move(text);
}

fax_header_t *read_fax_header(int fd)
{
    size_t length = 0;
    const c_string text = read_sound_text(fd, &length);
    if (!text)
        return nullptr;
    // What was built so far is freed with the builder if memory is short.
    header_builder header;
    string_view bad;
    const fault found = each_attribute({text.get(), length}, &bad, [&](string_view name, string_view value) {
        return header.put(name, value);
    });
    return complain_of(found, text.get(), bad) ? nullptr : header.release();
}

c_string read_fax_header_values(int fd, const char *const *names, const char **values, size_t count)
{
    size_t length = 0;
    c_string text = read_sound_text(fd, &length);
    if (text)
        find_values(text.get(), {text.get(), length}, names, values, count);
    return text;
}

// Writing

// True if the list would read back as it is.
static bool is_writable(const fax_header_t *list)
{
    for (; list; list = list->next)
        if (strpbrk(list->name, ":\n") || strchr(list->value, '\n'))
            return false;
    return true;
}

static char *append(char *to, string_view text)
{
    return static_cast<char *>(memcpy(to, text.data(), text.size())) + text.size();
}

int write_fax_header(int fd, const fax_header_t *list)
{
    // Counted first: the preamble says how long the text is, and a
    // list that cannot be written leaves the file alone.
    size_t length = 1;  // the terminator
    for (const fax_header_t *node = list; node; node = node->next)
        length += strlen(node->name) + strlen(node->value) + 2;
    if (length > max_header_text || !is_writable(list)) {
        complain("write_fax_header: Can't create fax file header: %s\n", strerror(EINVAL));
        return -1;
    }

    c_string header(static_cast<char *>(malloc(preamble_size + length)));
    if (!header) {
        complain("write_fax_header: Out of memory\n");
        return -1;
    }
    // The whole header in one buffer, so that one write makes it.
    uint32_t preamble[] = {htobe32(FAX_MAGIC), htobe32(static_cast<uint32_t>(length))};
    memcpy(header.get(), preamble, preamble_size);
    char *p = header.get() + preamble_size;
    for (const fax_header_t *node = list; node; node = node->next) {
        p = append(append(p, node->name), ":");
        p = append(append(p, node->value), "\n");
    }
    *p = terminator;

    if (lseek(fd, 0, SEEK_SET) < 0) {
        complain("write_fax_header: Can't rewind file: %s\n", strerror(errno));
        return -1;
    }
    if (!write_full(fd, header.get(), preamble_size + length)) {
        complain("write_fax_header: Can't create fax file header: %s\n", strerror(errno));
        return -1;
    }
    return 1;
}

// Resolution and compression

static constexpr char resolution[] = "RESOLUTION";
static constexpr char compression[] = "COMPRESSION";

// The code of a value that is not empty, or -1 with a warning, which shows a value of nothing but white space
// as a blank.
static int decode_value(const char *name, const char *value, int (*to_code)(signed char))
{
    while (isspace(static_cast<unsigned char>(*value)))
        value++;
    int code = *value ? to_code(static_cast<signed char>(*value)) : -1;
    if (code < 0)
        printf("WARNING: Invalid %s value in header: [%c]\n", name, *value ? *value : ' ');
    return code;
}

// Stores a code's character. Returns 1, or -1 after printing `failed`.
static int set_code(fax_header_t *list, const char *name, char c, const char *failed)
{
    const char value[] = {c, '\0'};
    if (set_fax_header_av(list, name, value) == 1)
        return 1;
    printf("%s\n", failed);
    return -1;
}

// Unlike a missing compression, a missing resolution cannot be guessed: the page would come out at half its
// height or twice.
int get_vertical_resolution(const fax_header_t *list)
{
    const char *value = get_fax_header_value(list, resolution);
    if (!value || !*value) {
        printf("WARNING: No %s value in header\n", resolution);
        return -1;
    }
    return decode_value(resolution, value, asciitoVR);
}

int set_vertical_resolution(fax_header_t *list, int code)
{
    char c = VRtoascii(code);
    if (!c) {
        printf("set_vertical_resolution: Invalid resolution: [%d]\n", code);
        return -1;
    }
    return set_code(list, resolution, c, "set_vertical_resolution: Can't set resolution");
}

// Kept: a fax without the attribute is MH; faxes of the oldest senders have none.
int get_compression_mode(const fax_header_t *list)
{
    const char *value = get_fax_header_value(list, compression);
    if (!value || !*value)
        return DF_MH;
    return decode_value(compression, value, asciitoDF);
}

int set_compression_mode(fax_header_t *list, int code)
{
    char c = DFtoascii(code);
    if (!c) {
        printf("set_compression_mode: invalid mode: %d\n", code);
        return -1;
    }
    // Kept: the blank in the function's name; scripts search for the line as it is.
    return set_code(list, compression, c, "set_compression mode: Can't set mode");
}

// The quick test: mail asks it of every file before attaching it

static int refuse_system_error(const char *path)
{
    trprintf("is_corvane_fax: Bad fax file [%s]: %s\n", path, strerror(errno));
    return 0;
}

// Asks for the kind of file before opening it: opening a pipe would wait for its writer.
int is_corvane_fax(const char *path)
{
    struct stat st;
    if (!path)
        path = "";
    if (stat(path, &st) < 0)
        return refuse_system_error(path);
    if (!S_ISREG(st.st_mode)) {
        trprintf("is_corvane_fax: Bad fax file [%s]: not a file\n", path);
        return 0;
    }
    unique_fd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd)
        return refuse_system_error(path);
    char magic[sizeof FAX_MAGIC];
    const ssize_t got = read_full(fd.get(), magic, sizeof magic);
    if (got < 0)
        return refuse_system_error(path);
    if (got < static_cast<ssize_t>(sizeof magic) || big_endian(magic) != FAX_MAGIC) {
        trprintf("is_corvane_fax: Bad fax file [%s]: not a fax file\n", path);
        return 0;
    }
    return close(fd.release()) == 0 ? 1 : refuse_system_error(path);
}

}  // namespace faxtray
