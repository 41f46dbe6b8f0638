// Every listing scans its inbox, so a scan of 100,000 unchanged files must cost one stat call each and little
// more: files are looked up relative to the open directory, a path is made by copying the name after the
// directory's, and what the check for vanished files has learnt is used again when the directory is read.
#include "inbox/inbox_scan.h"

#include <dirent.h>
#include <endian.h>
#include <fcntl.h>
#include <sys/param.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "disk/work_note.h"
#include "faxfile/fax_header.h"
#include "inbox/fax_ids.h"
#include "inbox/fax_index.h"
#include "inbox/listed_file.h"
#include "log/report.h"
#include "util/access.h"
#include "util/paths.h"
#include "util/settings.h"
#include "util/trace.h"

namespace faxtray {

// What a scan has to complain about

namespace {

// Complaints about files of the inbox: traced at once, and logged at the end unless the last scan had the
// same. So a file that fails every scan is in the log once, not once a request.
class complaints_t {
public:
    // Adds one line. In the log `program` and ": " stand in front of it, unless that is "". Control
    // characters, which names of files may contain, are escaped.
    void add(const char *program, const char *format, ...) __attribute__((format(printf, 3, 4)))
    {
        char text[2 * MAXPATHLEN + 256];  // two paths at their longest and the words around them
        va_list args;
        va_start(args, format);
        vsnprintf(text, sizeof text, format, args);
        va_end(args);
        std::string line;
        for (const char *c = text; *c; c++) {
            const auto byte = static_cast<unsigned char>(*c);
            char shown[8];
            snprintf(shown, sizeof shown, iscntrl(byte) ? "\\x%02X" : "%c", byte);
            line += shown;
        }
        trprintf("%s\n", line.c_str());
        log_ += (*program ? std::string(program) + ": " : "") + line + "\n";
    }

    // The log has a part of it already, and gets the rest in any case.
    void is_in_log() { in_log_ = true; }

    // Ends the scan. `last` is what the scan before complained of, and becomes what this one did. Returns
    // whether that is the same, and was not logged again.
    bool conclude(std::string &last)
    {
        const bool again = log_ == last && !last.empty() && !in_log_;
        if (!again)
            fputs(log_.c_str(), stderr);
        last.swap(log_);
        return again;
    }

private:
    std::string log_;
    bool in_log_ = false;
};

}  // namespace

// One file

// The attributes of a fax header that the index shows.
namespace {
enum : int { PAGES, SENDER_FAX, SUB_FRAME, PWD_FRAME, SHOWN_ATTRS };
}
static constexpr const char *shown_attrs[SHOWN_ATTRS] = {"#PAGES", "SENDER_FAX#", "T30_SUB_FRAME",
                                                         "T30_PWD_FRAME"};

// A shorter file is no fax, whatever it holds.
static bool has_fax_magic(const char *bytes, ssize_t n)
{
    uint32_t word;
    memcpy(&word, bytes, sizeof word);
    return n >= static_cast<ssize_t>(sizeof word) && be32toh(word) == FAX_MAGIC;
}

// The value of "#PAGES" as a number, -1 if there is none.
static int page_count(const char *text, const char *path)
{
    if (!text)
        return -1;
    char *end;
    long count = strtol(text, &end, 10);  // like "%d": leading white space allowed, trailing text ignored
    if (end == text) {
        trprintf("warning: Invalid %s attribute in fax file \"%s\": [%s].\n", shown_attrs[PAGES], path, text);
        return -1;
    }
    // The wire has 32 bits; clients show -1 as unknown.
    return count >= INT32_MIN && count <= INT32_MAX ? static_cast<int>(count) : -1;
}

static char *value_or_unknown(const char *value)
{
    return borrowed(value ? value : "Unknown");
}

// A new node for a file; `values` are those of shown_attrs, or null if it is no fax. Null with a complaint
// without memory.
static file_node_t *describe_file(const char *path, const char *name, const struct stat &st,
                                  const char *const *values, complaints_t &complaints)
{
    file_info_t info = {};
    info.name = borrowed(name);
    info.pages = -1;
    info.size = static_cast<u_int>(std::min<off_t>(st.st_size, UINT32_MAX));  // the wire has no more bits
    info.mtime = st.st_mtime;
    if (values) {
        info.is_fax = 1;
        info.pages = page_count(values[PAGES], path);
        info.sender_fax = value_or_unknown(values[SENDER_FAX]);
        info.subaddress = value_or_unknown(values[SUB_FRAME]);
        info.pwd_frame = value_or_unknown(values[PWD_FRAME]);
    }
    const char *refused;
    file_node_t *node = build_node(info, &refused);
    if (node)  // ids are not spent on failures
        node->faxid = newid();
    else if (refused)
        complaints.add("", "create_file_node: strdup(\"%s\"): %s", refused, strerror(errno));
    else
        complaints.add("", "create_file_node: malloc(): %s", strerror(errno));
    return node;
}

// create_file_node for a file opened with open_inbox_file; no descriptor stands for its failure, errno. Reads
// one block, which holds the whole header of almost every fax.
static file_node_t *create_node(unique_fd fd, const char *path, const char *name, const struct stat &st,
                                complaints_t &complaints)
{
    if (!fd) {
        complaints.add("", "create_file_node: cv_open(\"%s\"): %s", path, strerror(errno));
        return nullptr;
    }
    char block[4096];
    ssize_t n = read(fd.get(), block, sizeof block);
    if (n < 0) {  // an I/O error, or a directory
        complaints.add("", "create_file_node: read(\"%s\"): %s", path, strerror(errno));
        return nullptr;
    }
    if (!has_fax_magic(block, n))
        return describe_file(path, name, st, nullptr, complaints);

    const char *values[SHOWN_ATTRS];
    c_string text;  // of a header that is longer than the block
    if (!find_fax_header_values(block, static_cast<size_t>(n), shown_attrs, values, SHOWN_ATTRS)) {
        // Longer, or corrupt: the thorough way reads it all, or says what is wrong.
        text = read_fax_header_values(fd.get(), shown_attrs, values, SHOWN_ATTRS);
        if (!text) {
            complaints.is_in_log();  // by read_fax_header_values
            complaints.add("", "create_file_node: read_fax_header(\"%s\") failed", path);
            return nullptr;
        }
    }
    return describe_file(path, name, st, values, complaints);
}

file_node_t *create_file_node(const char *path, const char *name, const struct stat &st)
{
    try {
        complaints_t complaints;
        std::string none;
        file_node_ptr node(create_node(open_inbox_file(AT_FDCWD, path), path, name, st, complaints));
        complaints.conclude(none);
        return node.release();
    } catch (const std::bad_alloc &) {
        report("create_file_node: malloc(): %s\n", strerror(ENOMEM));
        return nullptr;
    }
}

// The directory

namespace {

// An inbox directory, held open, and one of its files, selected by name.
class inbox_dir_t {
public:
    explicit inbox_dir_t(const char *path) : directory_(path)
    {
        stream_.reset(open_stream(path));
        error_ = errno;
        // Normalising a canonical directory changes nothing, so its paths can be made by copying.
        size_t length = strlen(path);
        if (is_canonical_path(path) && length > 1 && length + 2 <= sizeof path_) {
            memcpy(path_, path, length);
            path_[length] = '/';
            prefix_ = length + 1;
        }
    }

    DIR *stream() const noexcept { return stream_.get(); }  // null if the directory cannot be read
    int error() const noexcept { return error_; }           // its errno then
    int fd() const noexcept { return stream_ ? dirfd(stream_.get()) : -1; }

    // Selects the file of that name and returns its path, valid until the next selection; null if no valid
    // path can be made. A name that normalising would leave alone needs neither mk_path nor a walk from the
    // root.
    const char *select(const char *name)
    {
        size_t length = strlen(name);
        if (prefix_ != 0 && prefix_ + length + 1 <= sizeof path_ && is_plain(name, length)) {
            memcpy(path_ + prefix_, name, length + 1);
            selected_ = name;
            return path_;
        }
        return selected_ = mk_path(directory_, name);
    }

    // The selected file, for calls like openat that take fd() and a path.
    const char *selected() const noexcept { return selected_; }
    bool status(struct stat *st) const { return fstatat(fd(), selected_, st, 0) == 0; }

private:
    static DIR *open_stream(const char *path)
    {
        unique_fd fd(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        DIR *stream = fd ? fdopendir(fd.get()) : nullptr;
        if (stream)
            (void)fd.release();
        return stream;
    }

    // Whether mk_path would keep the name as it is: it refuses white space and strips quotes.
    static bool is_plain(const char *name, size_t length)
    {
        for (const char *c = name; *c; c++)
            if ((*c > 0 && *c <= ' ') || *c == 127)  // white space and control characters
                return false;
        return length > 0 && name[length - 1] != '"';
    }

    const char *directory_;
    dir_ptr stream_;
    int error_ = 0;
    const char *selected_ = nullptr;  // relative to fd(), or absolute
    size_t prefix_ = 0;               // length of "directory/" in path_; 0: every path needs mk_path
    char path_[MAXPATHLEN];
};

// The names of listed files, which the nodes own. A hash table with open addressing, at most half full.
// Hashes are stored beside the pointers, because reading a name costs a cache miss.
class name_set_t {
public:
    explicit name_set_t(size_t most) : slots_(std::bit_ceil(2 * most + 1)) {}

    void insert(const char *name)
    {
        size_t hash = hash_of(name);
        slots_[slot_of(name, hash)] = {name, hash};
    }
    bool contains(const char *name) const { return slots_[slot_of(name, hash_of(name))].name; }

private:
    struct slot_t {
        const char *name;
        size_t hash;
    };

    static size_t hash_of(const char *name) { return std::hash<std::string_view>()(name); }

    // The slot that holds `name`, or the free one where it would be put.
    size_t slot_of(const char *name, size_t hash) const
    {
        size_t mask = slots_.size() - 1;
        size_t at = hash & mask;
        while (slots_[at].name && (slots_[at].hash != hash || strcmp(slots_[at].name, name) != 0))
            at = (at + 1) & mask;
        return at;
    }

    std::vector<slot_t> slots_;
};

// One scan, and what it has found out so far.
struct scan_t {
    explicit scan_t(user_node_t *scanned)
        : user(scanned), index(scanned->index), dir(scanned->inbox), unchanged(index->places.size())
    {
    }

    user_node_t *user;
    fax_index_t *index;
    inbox_dir_t dir;
    effective_user reader;                       // determined once a scan, not once a file
    name_set_t unchanged;                        // listed files that need no second look
    std::map<std::string, struct stat> changed;  // listed files whose mtime has changed since
    // Files added by scans that failed later: listed although above the mark.
    std::set<std::pair<std::string_view, time_t>> above_mark;
    name_set_t dropped{0};                             // names of dropped nodes, whose files are listed again
    time_t cutoff = 0;                                 // files of this mtime or later may still be growing
    std::set<std::string> young;                       // dropped ones among those
    std::vector<found_file_t> found;                   // to be added, in the order of the directory
    std::optional<std::set<std::string>> in_delivery;  // what deliveries are working on, once it is asked for
    complaints_t complaints;
};

}  // namespace

// Why files are left out; the first also says why a marker is refused.
static constexpr char not_regular[] = "Not a regular file";
static constexpr char included_before[] = "File included in previous index update";
static constexpr char too_young[] = "File newer than this update time";
static constexpr char being_delivered[] = "Copy that a delivery works on";
static constexpr char vanished[] = "No longer there";

// Frees the dropped nodes for which `done` is true.
template <class Done> static void free_dropped(fax_index_t *index, Done done)
{
    for (file_node_t **link = &index->dropped; *link;) {
        if (!done((*link)->name)) {
            link = &(*link)->next;
            continue;
        }
        file_node_ptr gone(*link);
        *link = gone->next;
        gone->next = nullptr;
    }
}

// Remembers the names of dropped nodes, and frees all but one of each name.
static void note_dropped(scan_t &scan)
{
    size_t count = 0;
    for (const file_node_t *node = scan.index->dropped; node; node = node->next)
        count++;
    scan.dropped = name_set_t(count + 1);  // and the one that this scan may drop
    free_dropped(scan.index, [&](const char *name) {
        const bool known = scan.dropped.contains(name);
        if (!known)
            scan.dropped.insert(name);
        return known;
    });
}

// Whether a node of that name was dropped because another file is there, and this node is not that file's
// either.
static bool is_stale(const scan_t &scan, const file_node_t *node, const struct stat &st)
{
    return scan.index->dropped && scan.dropped.contains(node->name) &&
           !(scan.index->places.at(node->faxid).file == file_identity_t(st));
}

// Drops the first listed file that is gone, and remembers what it sees of the others. Kept: one a scan;
// clients that page through the index would otherwise lose several ids at once.
static void drop_vanished(scan_t &scan)
{
    bool dropped = false;
    for (const file_node_t *node = scan.index->head, *next; node; node = next) {
        next = node->next;
        const char *path = scan.dir.select(node->name);
        if (!path) {
            fprintf(stderr, "Trayd: Warning: Can't create file path.\n");
            continue;
        }
        struct stat st;
        if (scan.dir.status(&st) && scan.reader.may(st, S_IFREG, "r")) {
            // A file changed in place is listed a second time, as a new fax: see skip_reason.
            if (is_stale(scan, node, st))
                continue;
            if (st.st_mtime <= scan.user->scan_mark || st.st_mtime == node->mtime)
                scan.unchanged.insert(node->name);
            else
                scan.changed.emplace(node->name, st);
        } else if (!dropped && !is_readable_file(path)) {  // by path: the directory may not be open
            dropped = true;
            scan.dropped.insert(node->name);
            drop_file_node(scan.index, node->faxid);
        }
    }
}

// Remembers the files that are listed although above the mark: a scan that fails keeps what it has added, but
// does not raise the mark.
static void note_above_mark(scan_t &scan)
{
    time_t mark = scan.user->scan_mark;
    if (!scan.index->tail || scan.index->tail->mtime <= mark)
        return;
    for (const file_node_t *node = scan.index->head; node; node = node->next)
        if (node->mtime > mark)
            scan.above_mark.emplace(node->name, node->mtime);
}

// Sets the mtime of the marker to now and computes the cut-off from it: files are compared with the clock of
// the file system that holds them, which may be another host's. No link is followed: users can make one of
// the marker's name. False with a complaint on failure.
static bool touch_marker(scan_t &scan)
{
    constexpr char marker[] = ".inbox_index";
    const char *path = mk_path(scan.user->inbox, marker);
    if (!path) {
        scan.complaints.add(Program, "update_index: mk_path(\"%s\",\"%s\") failed.", scan.user->inbox,
                            marker);
        return false;
    }
    if (utimensat(AT_FDCWD, path, nullptr, AT_SYMLINK_NOFOLLOW) < 0) {
        if (errno != ENOENT) {
            scan.complaints.add(Program, "update_index: utime(\"%s\"): %s", path, strerror(errno));
            return false;
        }
        unique_fd fd(open(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644));
        if (!fd) {
            scan.complaints.add(Program, "update_index: open(\"%s\"): %s", path, strerror(errno));
            return false;
        }
    }
    struct stat st;
    if (lstat(path, &st) < 0) {
        scan.complaints.add(Program, "update_index: stat(\"%s\"): %s", path, strerror(errno));
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        scan.complaints.add(Program, "update_index: open(\"%s\"): %s", path, not_regular);
        return false;
    }
    scan.cutoff = st.st_mtime - Update_slop;
    return true;
}

// Whether an earlier scan has added the file, as it is now.
static bool is_listed(const scan_t &scan, const char *name, time_t mtime)
{
    if (mtime <= scan.user->scan_mark)
        return !scan.dropped.contains(name);
    return !scan.above_mark.empty() && scan.above_mark.contains({name, mtime});
}

// Whether the file at `path` is one that a delivery has made beside the fax, for as long as it needs it.
static bool is_in_delivery(scan_t &scan, const char *path)
{
    if (!scan.in_delivery)
        scan.in_delivery = noted_files();
    return scan.in_delivery->contains(path);
}

// The reason to leave a directory entry out of this scan, or null to add it.
static const char *skip_reason(scan_t &scan, const char *name, const char *path, const struct stat &st)
{
    if (!(st.st_mode & S_IFREG))  // Kept: the bit, not S_ISREG, so a socket passes and fails the scan.
        return not_regular;
    if (is_listed(scan, name, st.st_mtime))
        return included_before;
    if (st.st_mtime >= scan.cutoff)
        return too_young;
    return is_in_delivery(scan, path) ? being_delivered : nullptr;
}

// Every file left out is traced with the reason: it answers "why is my fax not listed?".
static void trace_skip(const char *name, const char *reason)
{
    trprintf("update_index: Ignoring file: [%s]: %s.\n", name, reason);
}

// The status of a file found in the directory, as the check for vanished files saw it or, for a file that is
// not listed, as it is now. One status per file and scan: two could differ.
static bool status_of(const scan_t &scan, const char *name, struct stat *st)
{
    auto known = scan.changed.find(name);
    if (known == scan.changed.end())
        return scan.dir.status(st);
    *st = known->second;
    return true;
}

// Whether the selected entry has gone since the directory was read, as those of deliveries may at any moment.
// A link that leads nowhere has not.
static bool has_vanished(const scan_t &scan)
{
    struct stat st;
    return fstatat(scan.dir.fd(), scan.dir.selected(), &st, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT;
}

// Looks at one entry of the directory and, if it belongs in the index, adds a node to what was found. False,
// with a message, fails the scan.
static bool visit(scan_t &scan, const char *name)
{
    if (strncmp(name, "ii_", 3) == 0) {  // still being written by a delivery
        trprintf("update_index: Ignoring file: [%s].\n", name);
        return true;
    }
    if (scan.unchanged.contains(name)) {
        trace_skip(name, included_before);
        return true;
    }
    const char *path = scan.dir.select(name);
    if (!path) {
        scan.complaints.add(Program, "update_index: mk_path(\"%s\",\"%s\") failed.", scan.user->inbox, name);
        return false;
    }
    struct stat st;
    if (!status_of(scan, name, &st)) {
        const int error = errno;
        if (has_vanished(scan)) {
            trace_skip(name, vanished);
            return true;
        }
        scan.complaints.add(Program, "update_index: stat(\"%s\"): %s", path, strerror(error));
        return false;
    }
    if (const char *reason = skip_reason(scan, name, path, st)) {
        if (reason == too_young && scan.dropped.contains(name))
            scan.young.insert(name);
        trace_skip(name, reason);
        return true;
    }
    unique_fd fd = open_inbox_file(scan.dir.fd(), scan.dir.selected());
    if (!fd && errno == ELOOP) {  // a link that does not count
        trace_skip(name, not_regular);
        return true;
    }

    const int error = errno;  // of the opening; tracing may change it
    trprintf("update_index: Adding file [%s] to user \"%s\"'s inbox.\n", name, inbox_name(scan.user));
    errno = error;
    file_node_ptr node(create_node(std::move(fd), path, name, st, scan.complaints));
    if (!node) {
        scan.complaints.add(Program, "update_index: Can't create new index entry");
        return false;
    }
    scan.found.push_back({std::move(node), file_identity_t(st)});
    return true;
}

// Visits every entry but the hidden ones. False, with a message, at the first failure.
static bool visit_all(scan_t &scan)
{
    for (;;) {
        errno = 0;
        const dirent *entry = readdir(scan.dir.stream());
        if (!entry) {
            if (errno == 0)
                return true;
            report_as_program("update_index: opendir(\"%s\"): %s\n", scan.user->inbox, strerror(errno));
            return false;
        }
        if (entry->d_name[0] != '.' && !visit(scan, entry->d_name))
            return false;
    }
}

// Adds what was found to the index and returns the largest mtime, or 0. Also done when the scan has failed,
// so that one bad file does not hide all those before it.
static time_t add_found(scan_t &scan)
{
    // Stable, so that files of equal mtime are listed in the order of the directory.
    auto older = [](const found_file_t &a, const found_file_t &b) { return a.node->mtime < b.node->mtime; };
    if (scan.found.empty())
        return 0;
    std::stable_sort(scan.found.begin(), scan.found.end(), older);
    time_t newest = scan.found.back().node->mtime;
    add_file_nodes(scan.index, scan.found);
    return newest;
}

// update_index; may throw std::bad_alloc, the index then being as it was but for a vanished file.
static bool scan_inbox(scan_t &scan)
{
    note_dropped(scan);
    drop_vanished(scan);  // Kept: before the directory is known to be readable
    if (!scan.dir.stream()) {
        report_as_program("update_index: opendir(\"%s\"): %s\n", scan.user->inbox,
                          strerror(scan.dir.error()));
        return false;
    }
    if (!touch_marker(scan))
        return false;
    note_above_mark(scan);

    bool complete = visit_all(scan);
    time_t newest = add_found(scan);
    // Mark and check value stay as they were: the next scan must look at the failed file again.
    if (!complete)
        return false;
    free_dropped(scan.index, [&](const char *name) { return !scan.young.contains(name); });
    scan.index->check_value = scan.index->name_sum;
    scan.user->scan_mark = std::max(scan.user->scan_mark, newest);
    return true;
}

int update_index(user_node_t *user)
{
    trprintf("update_index: Updating inbox for user: [%s].\n", inbox_name(user));
    user->index->complained_again = false;
    try {
        scan_t scan(user);
        const bool complete = scan_inbox(scan);
        user->index->complained_again = scan.complaints.conclude(user->index->complaints);
        return complete ? 1 : -1;
    } catch (const std::bad_alloc &) {
        report_as_program("update_index: Can't create new index entry\n");
        return -1;
    }
}

}  // namespace faxtray
