// scratch_file: a file that is removed when its owner goes out of scope, unless it was kept. The owner has
// only its path: the file may be open, closed or not yet made. A failure to remove it is not reported:
// work_note sees to it, as after a crash.
#pragma once

#include <string>
#include <utility>

#include "disk/work_note.h"

namespace faxtray {

class scratch_file {
public:
    scratch_file() = default;  // owns no file
    explicit scratch_file(std::string path) noexcept : path_(std::move(path)) {}
    scratch_file(scratch_file &&other) noexcept : path_(std::exchange(other.path_, {})) {}
    scratch_file &operator=(scratch_file &&other) noexcept
    {
        remove();
        path_ = std::exchange(other.path_, {});
        return *this;
    }
    ~scratch_file() { remove(); }

    explicit operator bool() const noexcept { return !path_.empty(); }
    const char *path() const noexcept { return path_.c_str(); }  // "" for none
    void keep() noexcept { path_.clear(); }                      // the file stays; this owns none any more
    void remove() noexcept                                       // the file is removed now
    {
        if (!path_.empty())
            note_remove(path_.c_str());
        path_.clear();
    }

private:
    std::string path_;
};

}  // namespace faxtray
