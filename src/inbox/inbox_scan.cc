// A scan of everything costs a status call a file, so what the check for vanished files has learnt is used
// again when the directory is read. A scan of what has changed does the same with the few files it is about:
// where it could come to anything else than a scan of everything, it leaves things to that, before it has
// done anything but touch the marker.
#include "inbox/inbox_scan.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "disk/work_note.h"
#include "inbox/fax_index.h"
#include "inbox/file_node.h"
#include "inbox/inbox_dir.h"
#include "inbox/listed_file.h"
#include "inbox/name_set.h"
#include "inbox/scan_complaints.h"
#include "log/report.h"
#include "util/access.h"
#include "util/settings.h"
#include "util/trace.h"

namespace faxtray {

namespace {

// One scan, and what it has found out so far.
struct scan_t {
    scan_t(user_node_t *scanned, size_t most_unchanged)
        : user(scanned), index(scanned->index), dir(scanned->inbox), unchanged(most_unchanged)
    {
    }

    user_node_t *user;
    fax_index_t *index;
    inbox_dir_t dir;
    effective_user reader;                    // determined once a scan, not once a file
    name_set_t unchanged;                     // listed files that need no second look
    std::map<std::string, struct stat> seen;  // files whose status the scan knows, and looks at again
    name_set_t dropped{0};                    // names of dropped nodes, whose files are listed again
    bool has_dropped = false;                 // one of them in this scan
    time_t cutoff = 0;                        // files of this mtime or later may still be growing
    std::set<std::string> young;              // dropped ones among those
    std::vector<found_file_t> found;          // to be added, in the order of the directory
    std::optional<std::set<std::string>> in_delivery;  // what deliveries are working on, once it is asked for
    scan_complaints_t complaints;

    std::set<std::string> again;  // entries that the next scan must look at, whether or not they change
    bool doubtful = false;        // it must look at all of them
};

}  // namespace

// Why files are left out; the first also says why a marker is refused.
static constexpr char not_regular[] = "Not a regular file";
static constexpr char included_before[] = "File included in previous index update";
static constexpr char too_young[] = "File newer than this update time";
static constexpr char being_delivered[] = "Copy that a delivery works on";
static constexpr char vanished[] = "No longer there";

// What the next scan must look at

static void look_again(scan_t &scan, const char *name)
{
    if (scan.again.size() > inbox_watch_t::most_names)
        scan.doubtful = true;
    else
        scan.again.insert(name);
}

// Whether a file may change without an event in its directory: by its other names.
static bool has_other_names(const struct stat &st)
{
    return S_ISREG(st.st_mode) && st.st_nlink > 1;
}

// Dropped nodes

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

// Vanished files

// The status of the selected file as the scan has seen it before or, if it has not, as it is now. One status
// per file and scan: two could differ.
static bool status_of(const scan_t &scan, const char *name, struct stat *st)
{
    auto known = scan.seen.find(name);
    if (known == scan.seen.end())
        return scan.dir.status(st);
    *st = known->second;
    return true;
}

// Looks at a listed file: drops its node if the file has gone and no other was dropped in this scan, and
// remembers what it sees. Kept: one a scan; clients that page through the index would otherwise lose several
// ids at once.
static void check_listed(scan_t &scan, const file_node_t *node)
{
    const char *path = scan.dir.select(node->name);
    if (!path) {
        fprintf(stderr, "Trayd: Warning: Can't create file path.\n");
        scan.doubtful = true;
        return;
    }
    struct stat st;
    if (!status_of(scan, node->name, &st) || !scan.reader.may(st, S_IFREG, "r")) {
        if (scan.has_dropped || is_readable_file(path)) {  // by path: the directory may not be open
            look_again(scan, node->name);
            return;
        }
        scan.has_dropped = true;
        scan.dropped.insert(node->name);
        drop_file_node(scan.index, node->faxid);
        return;
    }
    scan.doubtful = scan.doubtful || has_other_names(st);
    // A file changed in place is listed a second time, as a new fax: see skip_reason.
    if (is_stale(scan, node, st))
        return;
    if (st.st_mtime <= scan.user->scan_mark || st.st_mtime == node->mtime)
        scan.unchanged.insert(node->name);
    else
        scan.seen.emplace(node->name, st);
}

// All listed files, in the order of the list.
static void check_all_listed(scan_t &scan)
{
    for (const file_node_t *node = scan.index->head, *next; node; node = next) {
        next = node->next;
        check_listed(scan, node);
    }
}

// Those of the given names, in the same order: of equal times the one that came first has the lower id.
static void check_listed_among(scan_t &scan, const std::set<std::string> &names)
{
    std::vector<const file_node_t *> nodes;
    for (const std::string &name : names) {
        auto [at, end] = scan.index->by_name.equal_range(name);
        for (; at != end; ++at)
            nodes.push_back(at->second);
    }
    std::sort(nodes.begin(), nodes.end(), [](const file_node_t *a, const file_node_t *b) {
        return std::pair(a->mtime, a->faxid) < std::pair(b->mtime, b->faxid);
    });
    for (const file_node_t *node : nodes)
        check_listed(scan, node);
}

// The marker

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
    scan.index->last_touch = st.st_mtime;
    scan.cutoff = st.st_mtime - Update_slop;
    return true;
}

// New files

// Whether an earlier scan has added the file, as it is now. A scan that fails keeps what it has added, but
// does not raise the mark.
static bool is_listed(const scan_t &scan, const char *name, time_t mtime)
{
    if (mtime <= scan.user->scan_mark)
        return !scan.dropped.contains(name);
    auto [at, end] = scan.index->by_name.equal_range(name);
    return std::any_of(at, end, [&](const auto &entry) { return entry.second->mtime == mtime; });
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

// Whether the file is left out of this scan. If that is for the time being, the next one looks again.
static bool is_left_out(scan_t &scan, const char *name, const char *path, const struct stat &st)
{
    const char *reason = skip_reason(scan, name, path, st);
    if (!reason)
        return false;
    if (reason == too_young || reason == being_delivered)
        look_again(scan, name);
    if (reason == too_young && scan.dropped.contains(name))
        scan.young.insert(name);
    trace_skip(name, reason);
    return true;
}

// Whether the selected entry has gone since the directory was read, as those of deliveries may at any moment.
// A link that leads nowhere has not.
static bool has_vanished(const scan_t &scan)
{
    struct stat st;
    return !scan.dir.link_status(&st) && errno == ENOENT;
}

// Looks at one entry of the directory and, if it belongs in the index, adds a node to what was found. False,
// with a message, fails the scan.
static bool visit(scan_t &scan, const char *name)
{
    if (is_unfinished(name)) {  // still being written by a delivery
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
    scan.doubtful = scan.doubtful || has_other_names(st);
    if (is_left_out(scan, name, path, st))
        return true;
    unique_fd fd = open_inbox_file(scan.dir.fd(), scan.dir.selected());
    if (!fd && errno == ELOOP) {  // a link that does not count
        trace_skip(name, not_regular);
        return true;
    }
    const int error = errno;                             // of the opening; what follows may change it
    if (!fd && error == ENOENT && has_vanished(scan)) {  // since its status was read, by another host
        trace_skip(name, vanished);
        return true;
    }

    trprintf("update_index: Adding file [%s] to user \"%s\"'s inbox.\n", name, inbox_name(scan.user));
    errno = error;
    file_node_ptr node(create_file_node(std::move(fd), path, name, st, scan.complaints));
    if (!node) {
        scan.complaints.add(Program, "update_index: Can't create new index entry");
        return false;
    }
    scan.found.push_back({std::move(node), file_identity_t(st)});
    return true;
}

// Visits every entry but the hidden ones, or those of `names` only. False, with a message, at the first
// failure.
static bool visit_directory(scan_t &scan, const std::set<std::string> *names)
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
        if (is_hidden(entry->d_name) || (names && !names->contains(entry->d_name)))
            continue;
        // A link changes when the file does that it leads to, elsewhere.
        if (entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN)
            scan.doubtful = scan.doubtful || !is_unfinished(entry->d_name);
        if (!visit(scan, entry->d_name))
            return false;
    }
}

// Visits those that have changed. Ids are given out in the order of the directory, which need not be read for
// a single file.
static bool visit_changed(scan_t &scan)
{
    std::set<std::string> to_add;
    for (const auto &[name, st] : scan.seen)
        if (!scan.unchanged.contains(name.c_str()) &&
            !is_left_out(scan, name.c_str(), scan.dir.select(name.c_str()), st))
            to_add.insert(name);
    return to_add.size() > 1 ? visit_directory(scan, &to_add)
                             : to_add.empty() || visit(scan, to_add.begin()->c_str());
}

// The scan as a whole

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

// Adds what was found and, if all was looked at, brings up to date what that is known by. Returns `complete`.
static bool finish(scan_t &scan, bool complete)
{
    time_t newest = add_found(scan);
    // Mark and check value stay as they were: the next scan must look at the failed file again.
    if (!complete)
        return false;
    free_dropped(scan.index, [&](const char *name) { return !scan.young.contains(name); });
    scan.index->check_value = scan.index->name_sum;
    scan.user->scan_mark = std::max(scan.user->scan_mark, newest);
    if (!scan.doubtful)
        scan.index->watch.settle(std::move(scan.again));
    return true;
}

// Both kinds of scan may throw std::bad_alloc, the index then being as it was but for a vanished file.

static bool scan_everything(scan_t &scan)
{
    const bool is_open = scan.dir.open();
    const int error = errno;
    if (is_open)
        scan.index->watch.begin(scan.dir.fd());
    note_dropped(scan);
    check_all_listed(scan);  // Kept: before the directory is known to be readable
    if (!is_open) {
        report_as_program("update_index: opendir(\"%s\"): %s\n", scan.user->inbox, strerror(error));
        return false;
    }
    return touch_marker(scan) && finish(scan, visit_directory(scan, nullptr));
}

// Whether the inbox is still the directory that is watched, which is opened if there are files to look at.
static bool is_still_watched(scan_t &scan, bool has_names)
{
    struct stat st;
    const int failed =
        has_names ? !scan.dir.open() || fstat(scan.dir.fd(), &st) : stat(scan.user->inbox, &st);
    return !failed && scan.index->watch.is_of(st);
}

// Reads the status of each of the files, after touching the marker: what changes later is then younger than
// the cut-off. False in case of doubt.
static bool look_ahead(scan_t &scan, const std::set<std::string> &names)
{
    const time_t last_touch = scan.index->last_touch;
    if (!is_still_watched(scan, !names.empty()) || !touch_marker(scan) || scan.index->last_touch < last_touch)
        return false;
    for (const std::string &name : names) {
        struct stat st;
        if (!scan.dir.select(name.c_str()))
            return false;
        if (scan.dir.link_status(&st)) {
            if (S_ISLNK(st.st_mode) || has_other_names(st))
                return false;
            scan.seen.emplace(name, st);
        } else if (errno != ENOENT) {
            return false;
        }
    }
    return true;
}

// Scans `scan.user` for what has changed, in `scan`; none if everything must be scanned.
static std::optional<bool> scan_changes(scan_t &scan, const std::set<std::string> &names)
{
    if (!look_ahead(scan, names))
        return {};
    note_dropped(scan);
    check_listed_among(scan, names);
    return finish(scan, visit_changed(scan));
}

// Ends a scan, for update_index to return.
static int conclude(scan_t &scan, bool complete)
{
    scan.index->complained_again = scan.complaints.conclude(scan.index->complaints);
    return complete ? 1 : -1;
}

// What is to be looked at; none if that is everything.
static std::optional<std::set<std::string>> changed_names(fax_index_t *index)
{
    auto names = index->watch.take_changes();
    if (tr_writing())  // the trace names every file
        return {};
    for (const file_node_t *node = index->dropped; names && node; node = node->next)
        names->insert(node->name);
    return names;
}

int update_index(user_node_t *user)
{
    trprintf("update_index: Updating inbox for user: [%s].\n", inbox_name(user));
    fax_index_t *index = user->index;
    index->complained_again = false;
    try {
        if (const auto names = changed_names(index)) {
            scan_t scan(user, names->size());
            if (const auto complete = scan_changes(scan, *names))
                return conclude(scan, *complete);
        }
        scan_t scan(user, index->places.size());
        return conclude(scan, scan_everything(scan));
    } catch (const std::bad_alloc &) {
        report_as_program("update_index: Can't create new index entry\n");
        return -1;
    }
}

}  // namespace faxtray
