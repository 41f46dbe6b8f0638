// Events are read when an inbox is about to be scanned, not when they arrive: an idle daemon stays idle. They
// are of all inboxes and are handed to each. Two inboxes may be one directory, which has one watch then.
#include "inbox/inbox_watch.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/inotify.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

#include "inbox/inbox_dir.h"
#include "util/owned.h"

namespace faxtray {

// What can change an index. IN_CLOSE_WRITE is how writing through a mapping shows.
static constexpr uint32_t wanted_events = IN_CREATE | IN_DELETE | IN_MOVE | IN_MODIFY | IN_ATTRIB |
                                          IN_CLOSE_WRITE | IN_MOVE_SELF | IN_DELETE_SELF | IN_ONLYDIR;

namespace {

// A watched directory, and the inboxes that are in it.
struct directory_t {
    int watch;
    std::vector<inbox_watch_t *> inboxes;
};

}  // namespace

// All watches of the process.
struct watches_t {
    unique_fd events;                                                    // opened for the first one
    pid_t owner = 0;                                                     // who opened it
    size_t most = 0;                                                     // directories
    std::list<directory_t> directories;                                  // the one listed longest ago first
    std::unordered_map<int, std::list<directory_t>::iterator> by_watch;  // by inotify's number

    // Children share the daemon's descriptor: what they read, or stopped watching, the daemon would miss.
    bool is_usable() const { return events && owner == getpid(); }

    bool open();
    void read_events();
    void handle(const inotify_event &event);
    void doubt(const directory_t &directory);
    void doubt_all();
    int add(int directory);
    void join(inbox_watch_t *inbox, int watch);
    void part(inbox_watch_t *inbox);
    void give_up(directory_t &directory);
    void touch(int watch) { directories.splice(directories.end(), directories, by_watch.at(watch)); }
};
static watches_t watches;

// Half of what the kernel lets one user have: other programs watch files too. None without /proc.
static size_t watch_limit()
{
    const file_ptr file(fopen("/proc/sys/fs/inotify/max_user_watches", "re"));
    unsigned long most = 0;
    return file && fscanf(file.get(), "%lu", &most) == 1 ? most / 2 : 0;
}

bool watches_t::open()
{
    if (events)
        return is_usable();
    most = watch_limit();
    if (most == 0)
        return false;
    events.reset(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    owner = getpid();
    return static_cast<bool>(events);
}

// Reads all events there are.
void watches_t::read_events()
{
    constexpr size_t largest = sizeof(inotify_event) + NAME_MAX + 1;
    alignas(inotify_event) char buffer[64 * largest];
    for (;;) {
        const ssize_t n = read(events.get(), buffer, sizeof buffer);
        if (n <= 0) {
            if (n < 0 && errno == EAGAIN)
                return;
            doubt_all();  // nobody knows what was lost
            return;
        }
        const char *end = buffer + n;
        for (const char *at = buffer; at < end;) {
            const auto *event = reinterpret_cast<const inotify_event *>(at);
            handle(*event);
            at += sizeof *event + event->len;
        }
        if (static_cast<size_t>(n) + largest <= sizeof buffer)
            return;  // another event would have fitted
    }
}

void watches_t::doubt(const directory_t &directory)
{
    for (inbox_watch_t *inbox : directory.inboxes)
        inbox->doubt();
}

void watches_t::doubt_all()
{
    for (const directory_t &directory : directories)
        doubt(directory);
}

void watches_t::handle(const inotify_event &event)
{
    if (event.mask & IN_Q_OVERFLOW)
        return doubt_all();
    const auto found = by_watch.find(event.wd);
    if (found == by_watch.end())  // given up meanwhile
        return;
    directory_t &directory = *found->second;
    const char *name = event.len > 0 ? event.name : "";
    if (event.mask & IN_IGNORED)  // removed, or its file system unmounted
        give_up(directory);
    else if (is_hidden(name) || is_unfinished(name))
        return;
    else if (!*name || event.mask & IN_ISDIR)  // it is about the directory itself, or one in it
        doubt(directory);
    else
        for (inbox_watch_t *inbox : directory.inboxes)
            inbox->note(name);
}

// Forgets the directory. The kernel is told in any case: it may know the number no more.
void watches_t::give_up(directory_t &directory)
{
    doubt(directory);
    for (inbox_watch_t *inbox : directory.inboxes)
        inbox->watch_ = -1;
    if (is_usable())
        inotify_rm_watch(events.get(), directory.watch);
    const auto known = by_watch.find(directory.watch);
    directories.erase(known->second);
    by_watch.erase(known);
}

// Watches the open directory. Inotify's number, which may be that of a directory watched before, or -1.
int watches_t::add(int directory)
{
    char path[64];  // leads to the directory that is open, whatever its own path leads to by now
    snprintf(path, sizeof path, "/proc/self/fd/%d", directory);
    int watch = directories.size() < most ? inotify_add_watch(events.get(), path, wanted_events) : -1;
    if (watch < 0 && (directories.size() >= most || errno == ENOSPC) && !directories.empty()) {
        give_up(directories.front());
        watch = inotify_add_watch(events.get(), path, wanted_events);
    }
    return watch;
}

// Throws std::bad_alloc; a watch that nobody has joined is then the kernel's alone, and its events no one's.
void watches_t::join(inbox_watch_t *inbox, int watch)
{
    const auto known = by_watch.find(watch);
    if (known != by_watch.end()) {
        known->second->inboxes.push_back(inbox);
    } else {
        std::list<directory_t> one;
        one.push_back({watch, {inbox}});
        by_watch.emplace(watch, one.begin());
        directories.splice(directories.end(), one);
    }
    inbox->watch_ = watch;
}

void watches_t::part(inbox_watch_t *inbox)
{
    directory_t &directory = *by_watch.at(inbox->watch_);
    std::erase(directory.inboxes, inbox);
    inbox->watch_ = -1;
    if (directory.inboxes.empty())
        give_up(directory);
}

// Whether changes in the open directory are all made by programs of this host, which the kernel sees.
static bool is_local(int directory)
{
    static constexpr uint32_t local_types[] = {EXT4_SUPER_MAGIC /* and ext2, ext3 */, XFS_SUPER_MAGIC,
                                               BTRFS_SUPER_MAGIC, TMPFS_MAGIC, F2FS_SUPER_MAGIC};
    struct statfs fs;
    return fstatfs(directory, &fs) == 0 &&
           std::find(std::begin(local_types), std::end(local_types), static_cast<uint32_t>(fs.f_type)) !=
               std::end(local_types);
}

static time_t now()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec;
}

void inbox_watch_t::begin(int directory) noexcept
{
    doubt();
    struct stat st;
    if (!watches.open() || fstat(directory, &st) != 0)
        return;
    watches.read_events();  // what they tell, this scan sees
    if (watch_ >= 0 && !is_of(st))
        leave();
    begun_ = now();
    if (watch_ >= 0) {
        watches.touch(watch_);
        return;
    }
    const int watch = is_local(directory) ? watches.add(directory) : -1;
    if (watch < 0)
        return;
    try {
        watches.join(this, watch);
        device_ = st.st_dev;
        inode_ = st.st_ino;
    } catch (const std::bad_alloc &) {
        inotify_rm_watch(watches.events.get(), watch);
    }
}

void inbox_watch_t::settle(names_t again) noexcept
{
    settled_ = watch_ >= 0 && again.size() <= most_names;
    names_ = std::move(again);
}

std::optional<inbox_watch_t::names_t> inbox_watch_t::take_changes()
{
    if (watch_ < 0 || !watches.is_usable())
        return {};
    watches.read_events();
    if (!settled_ || now() - begun_ > full_scan_seconds)
        return {};
    watches.touch(watch_);
    settled_ = false;
    return std::move(names_);
}

void inbox_watch_t::leave() noexcept
{
    if (watch_ >= 0)
        watches.part(this);
    doubt();
}

void inbox_watch_t::doubt() noexcept
{
    settled_ = false;
    names_.clear();
}

// An entry of the directory has changed.
void inbox_watch_t::note(const char *name) noexcept
try {
    if (settled_)
        names_.insert(name);
    if (names_.size() > most_names)
        doubt();
} catch (const std::bad_alloc &) {
    doubt();
}

}  // namespace faxtray
