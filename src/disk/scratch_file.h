// scratch_file: a file that is removed when its owner goes out of scope, unless it was kept. The owner has
// only its path: the file may be open, closed or not yet made. A failure to remove it is not reported:
// work_note sees to it, as after a crash.
#pragma once

#include <sys/param.h>

#include <cstdio>

#include "disk/work_note.h"

namespace faxtray {

class scratch_file {
public:
    scratch_file() = default;                                         // owns no file
    explicit scratch_file(const char *path) noexcept { take(path); }  // needs no memory, so none is lost
    scratch_file(scratch_file &&other) noexcept
    {
        take(other.path_);
        other.keep();
    }
    scratch_file &operator=(scratch_file &&other) noexcept
    {
        remove();
        take(other.path_);
        other.keep();
        return *this;
    }
    ~scratch_file() { remove(); }

    explicit operator bool() const noexcept { return *path_; }
    const char *path() const noexcept { return path_; }  // "" for none
    void keep() noexcept { path_[0] = '\0'; }            // the file stays; this owns none any more
    void remove() noexcept                               // the file is removed now
    {
        if (*path_)
            note_remove(path_);
        keep();
    }

private:
    void take(const char *path) noexcept
    {
        if (snprintf(path_, sizeof path_, "%s", path) >= static_cast<int>(sizeof path_))
            keep();  // no file has so long a path
    }

    char path_[MAXPATHLEN] = "";
};

}  // namespace faxtray
