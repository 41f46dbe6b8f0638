// The copy lets the lease go before the content is looked at: no editor waits for a list of twenty thousand
// users to be taken apart.
#include "config/steady_copy.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <cstdint>
#include <ctime>

#include "disk/lease.h"
#include "util/io.h"

namespace faxtray {

static constexpr off_t largest_file = 256 << 20;  // it is held in memory

// Reading a pipe or a terminal may wait, and some devices never end. /dev/null does neither: it is a list
// without entries. A directory is let through, since reading it fails with a clearer reason.
static bool may_wait(const struct stat &st)
{
    const bool is_null = S_ISCHR(st.st_mode) && st.st_rdev == makedev(1, 3);
    return !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode) && !is_null;
}

// Whether what stands in the file now may be half of a change.
static bool is_too_young(const struct stat &st, bool leased)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME_COARSE, &now);  // the clock that file times are taken from
    const int64_t second = 1'000'000'000;
    const int64_t age = (now.tv_sec - st.st_mtim.tv_sec) * second + now.tv_nsec - st.st_mtim.tv_nsec;
    // Even with a lease: a second change within this tick would leave the file with the same time, and would
    // never be noticed. A time in the future says nothing, unless it is so near that the file's clock is
    // finer.
    return leased ? age == 0 : age > -second && age < 2 * second;
}

static bool is_same_file(const struct stat &a, const struct stat &b)
{
    return a.st_ino == b.st_ino && a.st_dev == b.st_dev;
}

static bool is_unchanged(const struct stat &a, const struct stat &b)
{
    return a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// Copies what is left of `fd` into a file in memory. Returns 0 or an error number.
static int copy_content(int fd, file_ptr *copy)
{
    unique_fd memory(memfd_create("info", MFD_CLOEXEC));
    if (!memory)
        return errno;
    char block[16 * 1024];
    ssize_t n;
    while ((n = read_full(fd, block, sizeof block)) > 0)
        if (!write_full(memory.get(), block, static_cast<size_t>(n)))
            return errno;
    if (n < 0 || lseek(memory.get(), 0, SEEK_SET) != 0)
        return errno;
    copy->reset(fdopen(memory.get(), "rb"));
    if (!*copy)
        return errno;
    (void)memory.release();
    return 0;
}

int read_steady(const char *path, const struct stat &last, steady_copy_t *copy)
{
    *copy = {};
    if (stat(path, &copy->status) != 0)
        return errno;
    if (may_wait(copy->status))
        return EINVAL;
    // O_NONBLOCK, in case a pipe takes the file's place just now. EAGAIN: another program has a write lease.
    const unique_fd fd(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd)
        return errno == EAGAIN ? EBUSY : errno;
    const int lease = take_read_lease(fd.get());
    if (lease == EBUSY)
        return EBUSY;

    if (fstat(fd.get(), &copy->status) != 0)
        return errno;
    if (copy->status.st_size > largest_file)
        return EFBIG;
    // Another file in the place of the last one was written before it came there.
    const bool changed_in_place = is_same_file(copy->status, last) && !is_unchanged(copy->status, last);
    if (changed_in_place && is_too_young(copy->status, lease == 0))
        return EBUSY;
    if (const int error = copy_content(fd.get(), &copy->file))
        return error;
    struct stat after;
    if (fstat(fd.get(), &after) == 0 && is_unchanged(copy->status, after))
        return 0;
    copy->file.reset();
    return EBUSY;
}

}  // namespace faxtray
