// inbox_index: the scan of an inbox directory, the chain of faxes that it keeps, and what clients are
// shown of it.
//
// A scan of 100,000 unchanged files costs one status call each and nothing else: names are opened below
// the open directory, a path is put together by copying the name behind the directory's, and what the
// check for vanished files learnt is remembered for the walk through the directory.
#include "inbox/inbox_index.h"

#include <dirent.h>
#include <endian.h>
#include <fcntl.h>
#include <sys/param.h>
#include <unistd.h>
#include <utime.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "faxfile/fax_header.h"
#include "inbox/messages.h"
#include "util/access.h"
#include "util/paths.h"
#include "util/settings.h"
#include "util/trace.h"

namespace faxtray {

// --- The chain ------------------------------------------------------------------------------------

static u_int sum_of(const char *name)
{
    u_int sum = 0;
    for (; *name; name++)
        sum += static_cast<u_int>(static_cast<signed char>(*name));
    return sum;
}

static file_node_t *&link_behind(fax_index_t *index, file_node_t *previous)
{
    return previous ? previous->next : index->head;
}

static void link_node(fax_index_t *index, file_node_t *previous, file_node_t *node)
{
    index->before.insert_or_assign(node->faxid, previous);  // may throw; nothing has changed by then
    file_node_t *&link = link_behind(index, previous);
    node->next = link;
    link = node;
    if (node->next)
        index->before[node->next->faxid] = node;
    else
        index->tail = node;
    index->name_sum += sum_of(node->name);
}

// Merges `nodes`, sorted by mtime, into the chain, each behind its equals: what inserting one by one
// gives. The index takes them over; those that it has no memory for stay where they are.
static void merge_nodes(fax_index_t *index, std::vector<file_node_ptr> &nodes)
{
    file_node_t *previous = nullptr;
    for (file_node_ptr &node : nodes) {
        if (index->tail && index->tail->mtime <= node->mtime)
            previous = index->tail;
        while (file_node_t *next = link_behind(index, previous)) {
            if (next->mtime > node->mtime)
                break;
            previous = next;
        }
        link_node(index, previous, node.get());
        previous = node.release();
    }
}

int add_file_node(fax_index_t *index, file_node_t *node)
{
    file_node_t *previous = nullptr;
    if (index->tail && index->tail->mtime <= node->mtime)
        previous = index->tail;
    else
        for (file_node_t *at = index->head; at && at->mtime <= node->mtime; at = at->next)
            previous = at;
    link_node(index, previous, node);
    return 1;
}

file_node_t *delete_file_node(fax_index_t *index, faxid_t faxid)
{
    auto found = index->before.find(faxid);
    if (found == index->before.end())
        return nullptr;
    file_node_t *previous = found->second;
    file_node_t *&link = link_behind(index, previous);
    file_node_t *node = link;
    link = node->next;
    if (node->next)
        index->before[node->next->faxid] = previous;
    else
        index->tail = previous;
    index->before.erase(found);
    index->name_sum -= sum_of(node->name);
    node->next = nullptr;
    return node;
}

file_node_t *get_file_node(const fax_index_t *index, faxid_t faxid)
{
    auto found = index->before.find(faxid);
    if (found == index->before.end())
        return nullptr;
    return found->second ? found->second->next : index->head;
}

void update_index_check_value(fax_index_t *index)
{
    index->name_sum = 0;
    for (const file_node_t *node = index->head; node; node = node->next)
        index->name_sum += sum_of(node->name);
    index->check_value = index->name_sum;
}

fax_index_t *create_new_list()
{
    return new (std::nothrow) fax_index_t;
}

void free_index(fax_index_t *index)
{
    if (!index)
        return;
    free_file_node(index->head);
    delete index;
}

faxid_t newid()
{
    static faxid_t last = static_cast<faxid_t>(time(nullptr));
    return ++last;
}

// --- Nodes ----------------------------------------------------------------------------------------

// A copy of `source` with strings of its own, null ones as empty. Null with errno; `*refused` is then the
// string that could not be copied, or null when it was the node itself.
static file_node_t *build_node(const file_info_t &source, const char **refused)
{
    file_node_ptr node(static_cast<file_node_t *>(calloc(1, sizeof(file_node_t))));
    *refused = nullptr;
    if (!node)
        return nullptr;
    static_cast<file_info_t &>(*node) = source;
    char **fields[] = {&node->name, &node->sender_fax, &node->subaddress, &node->pwd_frame};
    const char *texts[] = {source.name, source.sender_fax, source.subaddress, source.pwd_frame};
    for (char **field : fields)
        *field = nullptr;
    for (size_t i = 0; i < std::size(fields); i++) {
        const char *text = texts[i] ? texts[i] : "";
        *fields[i] = strdup(text);
        if (!*fields[i]) {
            *refused = text;
            return nullptr;
        }
    }
    return node.release();
}

// The record is only read, and its strings copied; plain C strings are what it is made of.
static char *borrowed(const char *text)
{
    return const_cast<char *>(text);
}

file_node_t *new_file_node(const char *name, const char *sender_fax, const char *subaddress,
                           const char *pwd_frame, int pages, int is_fax, faxid_t faxid, u_int size,
                           time_t mtime, err_t *error)
{
    const file_info_t source = {borrowed(name),
                                borrowed(sender_fax),
                                borrowed(subaddress),
                                borrowed(pwd_frame),
                                pages,
                                is_fax,
                                faxid,
                                size,
                                mtime};
    const char *refused;
    file_node_t *node = build_node(source, &refused);
    if (node)
        return node;
    int cause = errno;
    if (refused) {
        trprintf("new_file_node: strdup(\"%s\"): %s\n", refused, strerror(cause));
        refuse(error, IE_SYSTEM, cause, "Trayd: strdup(\"%s\"): %s\n", refused, strerror(cause));
    } else {
        trprintf("new_file_node: malloc(): %s\n", strerror(cause));
        refuse(error, IE_SYSTEM, cause, "Trayd: malloc(): %s\n", strerror(cause));
    }
    return nullptr;
}

file_node_t *copy_file_node(const file_node_t *node, err_t *error)
{
    return new_file_node(node->name, node->sender_fax, node->subaddress, node->pwd_frame, node->pages,
                         node->is_fax, node->faxid, node->size, node->mtime, error);
}

void free_file_node(file_node_t *node)
{
    while (node) {
        file_node_t *next = node->next;
        free(node->name);
        free(node->sender_fax);
        free(node->subaddress);
        free(node->pwd_frame);
        free(node);
        node = next;
    }
}

void free_file_list(file_list_t *list)
{
    if (!list)
        return;
    free_file_node(list->head);
    free(list);
}

file_list_t *copy_file_list(const file_list_t *list)
{
    if (!list) {
        fprintf(stderr, "copy_file_list: NULL file_list_t pointer\n");
        return nullptr;
    }
    std::unique_ptr<file_list_t, deleter<free_file_list>> copy(
        static_cast<file_list_t *>(calloc(1, sizeof(file_list_t))));
    if (!copy) {
        fprintf(stderr, "copy_file_list: memory allocation failure, errno=%d\n", errno);
        return nullptr;
    }
    copy->check_value = list->check_value;
    file_node_t **tail = &copy->head;
    for (const file_node_t *node = list->head; node; node = node->next) {
        *tail = copy_file_node(node, nullptr);
        if (!*tail) {
            fprintf(stderr, "copy_file_list: allocation failure, node[%s], errno=%d\n",
                    node->name ? node->name : "", errno);
            return nullptr;
        }
        tail = &(*tail)->next;
    }
    return copy.release();
}

// --- Reading one file -----------------------------------------------------------------------------

// The attributes of a fax header that the index shows.
enum : int { PAGES, SENDER_FAX, SUB_FRAME, PWD_FRAME, SHOWN_ATTRS };
constexpr const char *shown_attrs[SHOWN_ATTRS] = {"#PAGES", "SENDER_FAX#", "T30_SUB_FRAME", "T30_PWD_FRAME"};

static bool has_fax_magic(const char *bytes, ssize_t n)
{
    uint32_t word;
    memcpy(&word, bytes, sizeof word);
    return n >= static_cast<ssize_t>(sizeof word) && be32toh(word) == FAX_MAGIC;
}

static int page_count(const char *text, const char *path)
{
    if (!text)
        return -1;
    char *end;
    long count = strtol(text, &end, 10);  // what "%d" takes
    if (end == text) {
        trprintf("warning: Invalid %s attribute in fax file \"%s\": [%s].\n", shown_attrs[PAGES], path, text);
        return -1;
    }
    return static_cast<int>(count);
}

static char *value_or_unknown(const char *value)
{
    return borrowed(value ? value : "Unknown");
}

// A new node for a file whose header, if it is a fax, says `values`; null with a message.
static file_node_t *describe_file(const char *path, const char *name, const struct stat &st,
                                  const char *const *values)
{
    file_info_t info = {};
    info.name = borrowed(name);
    info.pages = -1;
    info.size = static_cast<u_int>(st.st_size);
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
    if (node)
        node->faxid = newid();
    else if (refused)
        report("create_file_node: strdup(\"%s\"): %s\n", refused, strerror(errno));
    else
        report("create_file_node: malloc(): %s\n", strerror(errno));
    return node;
}

// create_file_node for the file that `directory` and `at` lead to, as openat takes them. One read of a
// block brings in the whole header of almost every fax.
static file_node_t *create_node_at(int directory, const char *at, const char *path, const char *name,
                                   const struct stat &st)
{
    // Not to block on whatever may stand there by now in place of a file.
    unique_fd fd(openat(directory, at, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd) {
        report("create_file_node: cv_open(\"%s\"): %s\n", path, strerror(errno));
        return nullptr;
    }
    char block[4096];
    ssize_t n = read(fd.get(), block, sizeof block);
    if (n < 0) {
        report("create_file_node: read(\"%s\"): %s\n", path, strerror(errno));
        return nullptr;
    }
    if (!has_fax_magic(block, n))
        return describe_file(path, name, st, nullptr);

    const char *values[SHOWN_ATTRS];
    if (find_fax_header_values(block, static_cast<size_t>(n), shown_attrs, values, SHOWN_ATTRS))
        return describe_file(path, name, st, values);
    // Longer than the block, or corrupt.
    fax_header_ptr header(read_fax_header(fd.get()));
    if (!header) {
        report("create_file_node: read_fax_header(\"%s\") failed\n", path);
        return nullptr;
    }
    for (int i = 0; i < SHOWN_ATTRS; i++)
        values[i] = get_fax_header_value(header.get(), shown_attrs[i]);
    return describe_file(path, name, st, values);
}

file_node_t *create_file_node(const char *path, const char *name, const struct stat &st)
{
    return create_node_at(AT_FDCWD, path, path, name, st);
}

// --- The scan -------------------------------------------------------------------------------------

namespace {

// An inbox directory, held open, and the way from a file's name to the file.
class inbox_dir_t {
public:
    explicit inbox_dir_t(const char *path) : directory_(path)
    {
        stream_.reset(open_stream(path));
        error_ = errno;
        size_t length = strlen(path);
        if (is_canonical_path(path) && length > 1 && length + 2 <= sizeof path_) {
            memcpy(path_, path, length);
            path_[length] = '/';
            prefix_ = length + 1;
        }
    }

    DIR *stream() const noexcept { return stream_.get(); }  // null when it cannot be read
    int error() const noexcept { return error_; }           // errno of that
    int fd() const noexcept { return stream_ ? dirfd(stream_.get()) : -1; }

    // Turns to the file of that name. Returns its path, valid until the next turn; null when none can be
    // made. A name that normalising would not touch needs neither mk_path nor a walk from the root.
    const char *turn_to(const char *name)
    {
        size_t length = strlen(name);
        if (prefix_ != 0 && prefix_ + length + 1 <= sizeof path_ && is_plain(name, length)) {
            memcpy(path_ + prefix_, name, length + 1);
            at_ = name;
            return path_;
        }
        return at_ = mk_path(directory_, name);
    }

    // The file turned to, for calls that take a directory and a path.
    const char *at() const noexcept { return at_; }
    bool status(struct stat *st) const { return fstatat(fd(), at_, st, 0) == 0; }

private:
    static DIR *open_stream(const char *path)
    {
        unique_fd fd(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        DIR *stream = fd ? fdopendir(fd.get()) : nullptr;
        if (stream)
            (void)fd.release();
        return stream;
    }

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
    const char *at_ = nullptr;
    size_t prefix_ = 0;  // length of "directory/" in path_, 0 when the directory goes through mk_path
    char path_[MAXPATHLEN];
};

// Names of listed files; the names stay the nodes' own. Open addressing, at most half full. Hashes stand
// beside the names, since every name looked at lies somewhere else in memory.
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

    // Where `name` is, or would be put.
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

// One scan and what it has learnt of the files so far.
struct scan_t {
    explicit scan_t(user_node_t *scanned)
        : user(scanned), index(scanned->index), dir(scanned->inbox), unchanged(index->before.size())
    {
    }

    user_node_t *user;
    fax_index_t *index;
    inbox_dir_t dir;
    effective_user reader;                                     // asked for once a scan, not once a file
    name_set_t unchanged;                                      // listed, looked at, and nothing to add
    std::map<std::string, struct stat> changed;                // listed, looked at, and different by now
    std::set<std::pair<std::string_view, time_t>> above_mark;  // listed by scans that failed later
    time_t cutoff = 0;                                         // files as young as this may still grow
    std::vector<file_node_ptr> found;                          // in the order of the directory
};

}  // namespace

// Drops the first listed file that is gone. Kept: one a scan; clients page through the index meanwhile.
static void drop_vanished(scan_t &scan)
{
    for (const file_node_t *node = scan.index->head; node; node = node->next) {
        const char *path = scan.dir.turn_to(node->name);
        if (!path) {
            fprintf(stderr, "Trayd: Warning: Can't create file path.\n");
            continue;
        }
        struct stat st;
        if (scan.dir.status(&st) && scan.reader.may(st, S_IFREG, "r")) {
            if (st.st_mtime <= scan.user->scan_mark || st.st_mtime == node->mtime)
                scan.unchanged.insert(node->name);
            else
                scan.changed.emplace(node->name, st);
        } else if (!is_readable_file(path)) {
            free_file_node(delete_file_node(scan.index, node->faxid));
            return;
        }
    }
}

// Files that a scan added before it failed lie above the mark, which it could not raise.
static void note_above_mark(scan_t &scan)
{
    time_t mark = scan.user->scan_mark;
    if (!scan.index->tail || scan.index->tail->mtime <= mark)
        return;
    for (const file_node_t *node = scan.index->head; node; node = node->next)
        if (node->mtime > mark)
            scan.above_mark.emplace(node->name, node->mtime);
}

// Sets the marker's time to now and derives the cut-off from it, so that files are compared with the
// clock of the file system that holds them.
static bool touch_marker(scan_t &scan)
{
    constexpr char marker[] = ".inbox_index";
    const char *path = mk_path(scan.user->inbox, marker);
    if (!path) {
        report_as_program("update_index: mk_path(\"%s\",\"%s\") failed.\n", scan.user->inbox, marker);
        return false;
    }
    if (utime(path, nullptr) < 0) {
        if (errno != ENOENT) {
            report_as_program("update_index: utime(\"%s\"): %s\n", path, strerror(errno));
            return false;
        }
        unique_fd fd(open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644));
        if (!fd) {
            report_as_program("update_index: open(\"%s\"): %s\n", path, strerror(errno));
            return false;
        }
    }
    struct stat st;
    if (stat(path, &st) < 0) {
        report_as_program("update_index: stat(\"%s\"): %s\n", path, strerror(errno));
        return false;
    }
    scan.cutoff = st.st_mtime - Update_slop;
    return true;
}

static bool is_listed(const scan_t &scan, const char *name, time_t mtime)
{
    return mtime <= scan.user->scan_mark ||
           (!scan.above_mark.empty() && scan.above_mark.contains({name, mtime}));
}

// Why a directory entry is left out of this scan, or null when it belongs in.
static const char *skip_reason(const scan_t &scan, const char *name, const struct stat &st)
{
    if (!(st.st_mode & S_IFREG))  // Kept: the bit, not S_ISREG, so a socket passes.
        return "Not a regular file";
    if (is_listed(scan, name, st.st_mtime))
        return "File included in previous index update";
    if (st.st_mtime >= scan.cutoff)
        return "File newer than this update time";
    return nullptr;
}

static void trace_skip(const char *name, const char *reason)
{
    trprintf("update_index: Ignoring file: [%s]: %s.\n", name, reason);
}

// The status of a file met in the directory: as the check for vanished files saw it, or asked for now.
static bool status_of(const scan_t &scan, const char *name, struct stat *st)
{
    auto known = scan.changed.find(name);
    if (known == scan.changed.end())
        return scan.dir.status(st);
    *st = known->second;
    return true;
}

// Looks at one entry of the directory and adds it to what was found when it belongs into the index.
static bool visit(scan_t &scan, const char *name)
{
    if (strncmp(name, "ii_", 3) == 0) {  // still being written by a delivery
        trprintf("update_index: Ignoring file: [%s].\n", name);
        return true;
    }
    if (scan.unchanged.contains(name)) {
        trace_skip(name, "File included in previous index update");
        return true;
    }
    const char *path = scan.dir.turn_to(name);
    if (!path) {
        report_as_program("update_index: mk_path(\"%s\",\"%s\") failed.\n", scan.user->inbox, name);
        return false;
    }
    struct stat st;
    if (!status_of(scan, name, &st)) {
        report_as_program("update_index: stat(\"%s\"): %s\n", path, strerror(errno));
        return false;
    }
    if (const char *reason = skip_reason(scan, name, st)) {
        trace_skip(name, reason);
        return true;
    }

    trprintf("update_index: Adding file [%s] to user \"%s\"'s inbox.\n", name, inbox_name(scan.user));
    file_node_ptr node(create_node_at(scan.dir.fd(), scan.dir.at(), path, name, st));
    if (!node) {
        report_as_program("update_index: Can't create new index entry\n");
        return false;
    }
    scan.found.push_back(std::move(node));
    return true;
}

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

// Puts what was found into the index, also when the scan failed half-way. The largest mtime, or 0.
static time_t add_found(scan_t &scan)
{
    auto older = [](const file_node_ptr &a, const file_node_ptr &b) { return a->mtime < b->mtime; };
    if (scan.found.empty())
        return 0;
    std::stable_sort(scan.found.begin(), scan.found.end(), older);
    time_t newest = scan.found.back()->mtime;
    merge_nodes(scan.index, scan.found);
    return newest;
}

static int scan_inbox(user_node_t *user)
{
    scan_t scan(user);
    drop_vanished(scan);
    if (!scan.dir.stream()) {
        report_as_program("update_index: opendir(\"%s\"): %s\n", user->inbox, strerror(scan.dir.error()));
        return -1;
    }
    if (!touch_marker(scan))
        return -1;
    note_above_mark(scan);

    bool complete = visit_all(scan);
    time_t newest = add_found(scan);
    if (!complete)
        return -1;
    user->index->check_value = user->index->name_sum;
    user->scan_mark = std::max(user->scan_mark, newest);
    return 1;
}

int update_index(user_node_t *user)
{
    trprintf("update_index: Updating inbox for user: [%s].\n", inbox_name(user));
    try {
        return scan_inbox(user);
    } catch (const std::bad_alloc &) {
        report_as_program("update_index: Can't create new index entry\n");
        return -1;
    }
}

int load_inbox(user_node_t *user)
{
    if (!user->index) {
        user->index = create_new_list();
        if (!user->index) {
            trprintf("load_inbox: Can't create inbox index for: [%s]\n", inbox_name(user));
            fprintf(stderr, "load_inbox: Can't create inbox index..\n");
            return 0;
        }
    }
    if (update_index(user) != 1) {
        fprintf(stderr, "load_inbox: Can't create inbox index..\n");
        return 0;
    }
    return 1;
}

// --- What clients see and remove ------------------------------------------------------------------

// Copies at most `count` nodes from `start` on to `*head`. `*shown` becomes the mtime of the last one
// behind the first; Kept: a slice of one fax leaves it, so committing after it removes nothing new.
static bool copy_index(const file_node_t *start, int count, file_node_t **head, time_t *shown, err_t *error)
{
    if (count <= 0 || count > MAX_INDEX_COUNT)
        count = MAX_INDEX_COUNT;
    file_node_t **tail = head;
    for (const file_node_t *node = start; node && count > 0; node = node->next, count--) {
        *tail = copy_file_node(node, error);
        if (!*tail) {
            free_file_node(*head);
            *head = nullptr;
            return false;
        }
        tail = &(*tail)->next;
        if (node != start)
            *shown = node->mtime;
    }
    return true;
}

// For a slice that ends at `node`: where it begins. `*count` becomes what leads up to the node when less
// than that many faxes stand before it. Kept: without a usable count the slice of 100 begins at the head.
static const file_node_t *slice_start(const fax_index_t *index, const file_node_t *node, int *count)
{
    int position = 0;
    for (const file_node_t *at = index->head; at != node; at = at->next)
        position++;
    int skipped = 0;
    if (*count > 0 && *count <= position)
        skipped = position - *count + 1;
    else
        *count = position + 1;
    const file_node_t *start = index->head;
    while (skipped-- > 0)
        start = start->next;
    return start;
}

file_list_t *get_index(user_node_t *user, u_int check_value, int faxid, int how, int count, err_t *error)
{
    static file_list_t result;

    free_file_node(result.head);
    result = {};
    if (!load_inbox(user)) {
        trprintf("get_index: load_inbox failed.\n");
        refuse(error, IE_STATE, 0, "Trayd: Can't update index.");
        return nullptr;
    }
    const fax_index_t *index = user->index;
    if (check_value != 0 && check_value == index->check_value) {
        trprintf("get_index: inbox hasn't changed since last request.\n");
        refuse(error, IE_UNCHANGED, 0, "Trayd: Index has not changed since last request.");
        return nullptr;
    }
    result.check_value = index->check_value;
    if (!index->head)
        return &result;

    const file_node_t *start = index->head;
    if (faxid == 0) {
        how = 1;
    } else {
        start = get_file_node(index, static_cast<faxid_t>(faxid));
        if (!start) {
            trprintf("get_index: invalid faxid: %d.\n", faxid);
            refuse(error, IE_INVALID, 0, "Trayd: Invalid faxid: %d.\n", faxid);
            return nullptr;
        }
    }
    if (how != 0 && how != 1) {
        trprintf("get_index: invalid how: %d.\n", how);
        refuse(error, IE_BAD_HOW, 0, "Trayd: Invalid how: %d.\n", how);
        return nullptr;
    }
    if (how == 0)
        start = slice_start(index, start, &count);

    time_t shown = 0;
    if (!copy_index(start, count, &result.head, &shown, error))
        return nullptr;
    user->commit_mark = std::max(user->commit_mark, shown);
    return &result;
}

int commit_index(user_node_t *user)
{
    fax_index_t *index = user->index;
    if (!index || !index->head || index->head->mtime > user->commit_mark)
        return 1;
    while (index->head && index->head->mtime <= user->commit_mark) {
        file_node_ptr node(delete_file_node(index, index->head->faxid));
        const char *path = mk_path(user->inbox, node->name);
        if (!path)
            fprintf(stderr, "Trayd: Warning: Can't create file path.\n");
        else if (unlink(path) < 0)
            fprintf(stderr, "Trayd: Can't remove committed file: [%s]: %s.", path, strerror(errno));
    }
    user->commit_mark = 0;
    return 1;
}

u_int get_fax_count(const user_node_t *user)
{
    return user && user->index ? static_cast<u_int>(user->index->before.size()) : 0;
}

}  // namespace faxtray
