// Reads and writes the header of a fax file. One silent routine takes the text block apart; both the index
// scan, from memory, and the reading of a file rest on it. Who calls it finds the words for what is wrong.
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
#include "util/trace.h"

namespace faxtray {

using std::string_view;

static constexpr size_t preamble_size = 8;
static constexpr char terminator = 0x1D;

// Kept: on both streams, for operators watch the one and the log keeps the other.
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

// A node of its own copies, or null without memory.
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
        complain("new_fax_header: Ignoring null attr\n");
        return -1;
    }
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
    complain("set_fax_header_var: Bad attr-value pair: [%s]\n", pair);
}

int set_fax_header_string(fax_header_t *list, const char *pair)
{
    const char *colon = pair ? strchr(pair, ':') : nullptr;
    if (!colon) {
        complain_bad_pair(pair ? pair : "(null)");
        return -1;
    }
    c_string name(strndup(pair, static_cast<size_t>(colon - pair)));
    if (!name) {
        complain("set_fax_header_var: Out of memory\n");
        return -1;
    }
    return set_fax_header_av(list, name.get(), colon + 1);
}

// Reading

namespace {

// Builds a list in time that does not grow with the square of its length: appends at a tail and finds
// names by an index once there are many.
class header_builder {
public:
    header_builder() = default;
    ~header_builder() { free_fax_header(first_); }
    header_builder(const header_builder &) = delete;
    header_builder &operator=(const header_builder &) = delete;

    // False without memory. A name that occurs twice keeps its first place and takes the later value.
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
    static constexpr size_t many = 32;

    fax_header_t *find(string_view name) const
    {
        if (count_ >= many) {
            auto found = index_.find(name);
            return found == index_.end() ? nullptr : found->second;
        }
        fax_header_t *node = first_;
        while (node && name != node->name)
            node = node->next;
        return node;
    }

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

enum class fault { none, bad_pair, no_memory, empty };

}  // namespace

// Gives each attribute of a text block without its terminator to `put`, which returns false to stop, as
// without memory. Silent. A line ends at its line feed, or at a NUL before that; one with an empty name is
// lost. `*bad` becomes the line without a colon that ended the walk.
template <class Put> static fault each_attribute(string_view text, string_view *bad, Put put)
{
    bool any = false;
    while (!text.empty()) {
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

static uint32_t big_endian(const char *bytes)
{
    uint32_t word;
    memcpy(&word, bytes, sizeof word);
    return be32toh(word);
}

// The text block, without its terminator, of a file that begins with these bytes; empty when it does not lie
// within them whole.
static string_view text_block(const char *file, size_t n)
{
    if (n <= preamble_size || big_endian(file) != FAX_MAGIC)
        return {};
    size_t length = big_endian(file + 4);
    if (length == 0 || length > n - preamble_size || file[preamble_size + length - 1] != terminator)
        return {};
    return string_view(file + preamble_size, length - 1);
}

bool find_fax_header_values(char *bytes, size_t n, const char *const *names, const char **values,
                            size_t count)
{
    std::fill_n(values, count, nullptr);
    string_view bad;
    auto keep = [&](string_view name, string_view value) {
        const char *const *wanted = std::find(names, names + count, name);
        if (wanted != names + count) {
            values[wanted - names] = value.data();
            bytes[value.data() + value.size() - bytes] = '\0';  // was a line feed, the terminator or NUL
        }
        return true;
    };
    return each_attribute(text_block(bytes, n), &bad, keep) == fault::none;
}

// Reads until `n` bytes are there or the file ends. How many came, or -1 with errno.
static ssize_t read_fully(int fd, char *bytes, size_t n)
{
    size_t done = 0;
    while (done < n) {
        ssize_t got = read(fd, bytes + done, n - done);
        if (got == 0)
            break;
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return -1;
        done += static_cast<size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

// How long the text block is, from the preamble at the start of the file; 0 with a message.
static size_t read_text_length(int fd)
{
    if (lseek(fd, 0, SEEK_SET) < 0) {
        complain("read_fax_header: Can't rewind file: %s\n", strerror(errno));
        return 0;
    }
    char preamble[preamble_size];
    ssize_t got = read_fully(fd, preamble, sizeof preamble);
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

// True when the file is long enough for a text block of that length. Asked before memory is taken for it.
static bool holds_text(int fd, size_t length)
{
    struct stat st;
    return fstat(fd, &st) == 0 && st.st_size >= 0 &&
           length + preamble_size <= static_cast<size_t>(st.st_size);
}

fax_header_t *read_fax_header(int fd)
{
    size_t length = read_text_length(fd);
    if (length == 0)
        return nullptr;
    if (!holds_text(fd, length)) {
        complain("read_fax_header: Bad fax file: Corrupted header\n");
        return nullptr;
    }
    c_string text(static_cast<char *>(malloc(length)));
    if (!text) {
        complain("read_fax_header: Out of memory\n");
        return nullptr;
    }
    char *end = text.get() + length - 1;
    if (read_fully(fd, text.get(), length) != static_cast<ssize_t>(length) || *end != terminator) {
        complain("read_fax_header: Bad fax file: Corrupted header\n");
        return nullptr;
    }
    *end = '\0';

    header_builder header;
    string_view bad;
    switch (each_attribute(string_view(text.get(), length - 1), &bad,
                           [&](string_view name, string_view value) { return header.put(name, value); })) {
    case fault::none:
        return header.release();
    case fault::empty:
        complain("read_fax_header: Empty Header - probably corrupted\n");
        return nullptr;
    case fault::bad_pair:
        text.get()[bad.data() + bad.size() - text.get()] = '\0';
        complain_bad_pair(bad.data());
        break;
    case fault::no_memory:
        complain("set_fax_header_av: Out of memory\n");
        break;
    }
    complain("read_fax_header: set_fax_header_string failure\n");
    return nullptr;
}

// Writing

// True when what is written of `list` reads back as it is.
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

// One write, as long as the system takes the whole; continued, it tells why it was short.
static bool write_fully(int fd, const char *bytes, size_t n)
{
    while (n > 0) {
        ssize_t put = write(fd, bytes, n);
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0)
            return false;
        bytes += put;
        n -= static_cast<size_t>(put);
    }
    return true;
}

int write_fax_header(int fd, const fax_header_t *list)
{
    size_t length = 1;
    for (const fax_header_t *node = list; node; node = node->next)
        length += strlen(node->name) + strlen(node->value) + 2;
    if (length > UINT32_MAX || !is_writable(list)) {
        complain("write_fax_header: Can't create fax file header: %s\n", strerror(EINVAL));
        return -1;
    }

    c_string header(static_cast<char *>(malloc(preamble_size + length)));
    if (!header) {
        complain("write_fax_header: Out of memory\n");
        return -1;
    }
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
    if (!write_fully(fd, header.get(), preamble_size + length)) {
        complain("write_fax_header: Can't create fax file header: %s\n", strerror(errno));
        return -1;
    }
    return 1;
}

// Resolution and compression

static constexpr char resolution[] = "RESOLUTION";
static constexpr char compression[] = "COMPRESSION";

// The code of a value that is not empty, or -1 with a warning. A value of nothing but white space is
// shown as a blank.
static int decode_value(const char *name, const char *value, int (*to_code)(signed char))
{
    while (isspace(static_cast<unsigned char>(*value)))
        value++;
    int code = *value ? to_code(static_cast<signed char>(*value)) : -1;
    if (code < 0)
        printf("WARNING: Invalid %s value in header: [%c]\n", name, *value ? *value : ' ');
    return code;
}

// Stores a code's character, 0 for an invalid code. 1, or -1 after the caller's message.
static int set_code(fax_header_t *list, const char *name, char c, const char *failed)
{
    const char value[] = {c, '\0'};
    if (set_fax_header_av(list, name, value) == 1)
        return 1;
    printf("%s\n", failed);
    return -1;
}

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

// Kept: a fax without the attribute is MH, for that is what senders of old leave out.
int get_compression_mode(const fax_header_t *list)
{
    const char *value = get_fax_header_value(list, compression);
    if (!value || !*value)
        return 0;
    return decode_value(compression, value, asciitoDF);
}

int set_compression_mode(fax_header_t *list, int code)
{
    char c = DFtoascii(code);
    if (!c) {
        printf("set_compression_mode: invalid mode: %d\n", code);
        return -1;
    }
    return set_code(list, compression, c, "set_compression mode: Can't set mode");
}

// The quick test

static int refuse_system_error(const char *path)
{
    trprintf("is_corvane_fax: Bad fax file [%s]: %s\n", path, strerror(errno));
    return 0;
}

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
    ssize_t got = read_fully(fd.get(), magic, sizeof magic);
    if (got < 0)
        return refuse_system_error(path);
    if (got < static_cast<ssize_t>(sizeof magic) || big_endian(magic) != FAX_MAGIC) {
        trprintf("is_corvane_fax: Bad fax file [%s]: not a fax file\n", path);
        return 0;
    }
    return close(fd.release()) == 0 ? 1 : refuse_system_error(path);
}

}  // namespace faxtray
