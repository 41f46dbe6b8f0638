// inbox_watch: what has happened in an inbox directory since it was last scanned, so that a scan need not
// look at every file.
//
// All watches share one inotify descriptor of the process. A watch knows the names of the entries that have
// changed, or knows that it cannot tell: its directory is on a file system that other hosts or programs can
// change unseen, the kernel has lost events, something happened to the directory itself or to one in it, or
// another inbox needed the place. Whatever the doubt, the answer is to scan everything, with begin() before
// and settle() after it.
//
// What the kernel tells nobody are changes of a file by way of a hard link in another directory, or of a
// descriptor that was opened there, and of a mapped file until it is unmapped and closed. Files with more
// than one link are therefore no scan's to settle; for the rest, a watch is in doubt after full_scan_seconds.
#pragma once

#include <sys/stat.h>

#include <ctime>
#include <optional>
#include <set>
#include <string>

namespace faxtray {

inline time_t full_scan_seconds = 600;  // tests do not wait so long

class inbox_watch_t {
public:
    using names_t = std::set<std::string>;
    static constexpr size_t most_names = 1000;  // changes beyond that are a doubt

    inbox_watch_t() = default;
    ~inbox_watch_t() { leave(); }
    inbox_watch_t(const inbox_watch_t &) = delete;
    inbox_watch_t &operator=(const inbox_watch_t &) = delete;

    // A scan of everything begins, in the directory that is open as `directory`: changes from here on count.
    void begin(int directory) noexcept;

    // The scan has succeeded, and there is nothing that could change unseen. The next one is to look at the
    // entries `again`, whatever happens to them.
    void settle(names_t again) noexcept;

    // What has changed since the last scan began, with its `again`; none if only a scan of everything will
    // tell. The watch is in doubt until the next settle(). Throws std::bad_alloc.
    std::optional<names_t> take_changes();

    // Makes the next scan look at everything.
    void doubt() noexcept;

    // Whether `st` is of the directory that is watched.
    bool is_of(const struct stat &st) const noexcept { return st.st_dev == device_ && st.st_ino == inode_; }

private:
    friend struct watches_t;

    void leave() noexcept;
    void note(const char *name) noexcept;

    int watch_ = -1;  // inotify's number, -1: not watched
    dev_t device_ = 0;
    ino_t inode_ = 0;
    bool settled_ = false;
    names_t names_;
    time_t begun_ = 0;  // CLOCK_MONOTONIC
};

}  // namespace faxtray
