// inbox_dir: an inbox directory and one of its files, selected by name.
//
// A scan of 100,000 unchanged files must cost one status call each and little more: files are looked up
// relative to the open directory, and a path is made by copying the name after the directory's.
#pragma once

#include <sys/param.h>
#include <sys/stat.h>

#include <cstddef>

#include "util/owned.h"

namespace faxtray {

class inbox_dir_t {
public:
    explicit inbox_dir_t(const char *path);  // which must outlive this

    // Opens the directory: files are then found in this directory, also when its path leads elsewhere by now.
    // False with errno.
    bool open();
    DIR *stream() const noexcept { return stream_.get(); }  // null while it is not open

    // Selects the file of that name and returns its path, valid until the next selection; null if no valid
    // path can be made.
    const char *select(const char *name);

    // The selected file, for calls like openat: relative to fd(), or absolute.
    const char *selected() const noexcept { return selected_; }
    int fd() const noexcept;

    bool status(struct stat *st) const;       // of the selected file, links followed; false with errno
    bool link_status(struct stat *st) const;  // the same of a link itself

private:
    const char *directory_;
    dir_ptr stream_;
    const char *selected_ = nullptr;
    size_t prefix_ = 0;  // length of "directory/" in path_; 0: every path needs mk_path
    char path_[MAXPATHLEN];
};

// Whether scans pass over files of that name: hidden ones, among them the marker.
inline bool is_hidden(const char *name)
{
    return name[0] == '.';
}

// The same for those that a delivery is still writing.
inline bool is_unfinished(const char *name)
{
    return name[0] == 'i' && name[1] == 'i' && name[2] == '_';
}

}  // namespace faxtray
