#include "util/io.h"

#include <unistd.h>

#include <cerrno>

namespace faxtray {

ssize_t read_full(int fd, void *bytes, size_t n)
{
    size_t done = 0;
    while (done < n) {
        const ssize_t got = read(fd, static_cast<char *>(bytes) + done, n - done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        done += static_cast<size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

// Calls `put` (bytes, number) with what is left until nothing is. A call that writes nothing and reports no
// error would be repeated for ever, so it counts as a failure.
template <class Put> static bool write_all(const void *bytes, size_t n, Put put)
{
    for (const char *at = static_cast<const char *>(bytes); n > 0;) {
        const ssize_t written = put(at, n);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            errno = written < 0 ? errno : EIO;
            return false;
        }
        at += written;
        n -= static_cast<size_t>(written);
    }
    return true;
}

bool write_full(int fd, const void *bytes, size_t n)
{
    return write_all(bytes, n, [fd](const char *at, size_t left) { return write(fd, at, left); });
}

bool write_full_at(int fd, const void *bytes, size_t n, off_t offset)
{
    return write_all(bytes, n, [&](const char *at, size_t left) {
        const ssize_t written = pwrite(fd, at, left, offset);
        offset += written > 0 ? written : 0;
        return written;
    });
}

bool copy_rest(int from, int to)
{
    char block[65536];
    ssize_t n;
    while ((n = read_full(from, block, sizeof block)) > 0)
        if (!write_full(to, block, static_cast<size_t>(n)))
            return false;
    return n == 0;
}

}  // namespace faxtray
