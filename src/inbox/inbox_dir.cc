// Normalising the path of a file in a canonical directory changes nothing unless its name is odd, so most
// paths need neither mk_path nor a walk from the root.
#include "inbox/inbox_dir.h"

#include <fcntl.h>

#include <cstring>

#include "inbox/user_node.h"
#include "util/paths.h"

namespace faxtray {

inbox_dir_t::inbox_dir_t(const char *path) : directory_(path)
{
    size_t length = strlen(path);
    if (is_canonical_path(path) && length > 1 && length + 2 <= sizeof path_) {
        memcpy(path_, path, length);
        path_[length] = '/';
        prefix_ = length + 1;
    }
}

bool inbox_dir_t::open()
{
    unique_fd fd(::open(directory_, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    stream_.reset(fd ? fdopendir(fd.get()) : nullptr);
    if (stream_)
        (void)fd.release();
    return static_cast<bool>(stream_);
}

int inbox_dir_t::fd() const noexcept
{
    return stream_ ? dirfd(stream_.get()) : AT_FDCWD;
}

// Whether mk_path would keep the name as it is: it refuses white space and strips quotes.
static bool is_plain(const char *name, size_t length)
{
    for (const char *c = name; *c; c++)
        if ((*c > 0 && *c <= ' ') || *c == 127)  // white space and control characters
            return false;
    return length > 0 && name[length - 1] != '"';
}

const char *inbox_dir_t::select(const char *name)
{
    size_t length = strlen(name);
    if (prefix_ == 0 || prefix_ + length + 1 > sizeof path_ || !is_plain(name, length))
        return selected_ = mk_path(directory_, name);
    memcpy(path_ + prefix_, name, length + 1);
    selected_ = stream_ ? path_ + prefix_ : path_;
    return path_;
}

bool inbox_dir_t::status(struct stat *st) const
{
    return fstatat(fd(), selected_, st, 0) == 0;
}

bool inbox_dir_t::link_status(struct stat *st) const
{
    return fstatat(fd(), selected_, st, AT_SYMLINK_NOFOLLOW) == 0;
}

}  // namespace faxtray
