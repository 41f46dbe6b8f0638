// Two routes to one end: within a file system the source itself is renamed, else a staged copy of it. Either
// way the order is: flush the bytes, rename, flush the directory, and only then remove a source.
#include "disk/publish.h"

#include <fcntl.h>
#include <sys/param.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "disk/file_names.h"
#include "disk/files.h"
#include "disk/flush.h"
#include "disk/work_note.h"
#include "util/io.h"
#include "util/owned.h"
#include "util/paths.h"
#include "util/trace.h"

namespace faxtray {

static constexpr int most_names = 10000;  // tried for one file, so that no inbox holds the daemon up for ever

static bool failed(const char *call, const char *path)
{
    int error = errno;
    trprintf("publish: %s(\"%s\") failed: %s.\n", call, path, strerror(error));
    errno = error;
    return false;
}

// Opens `path` if it is a regular file and no link; none with errno otherwise.
static unique_fd open_regular(const char *path, struct stat &st)
{
    unique_fd fd(open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd || fstat(fd.get(), &st) != 0)
        return {};
    errno = EINVAL;
    return S_ISREG(st.st_mode) ? std::move(fd) : unique_fd();
}

// False also when one of the two cannot be read: to be safe they then count as different.
static bool have_same_bytes(const char *a, const char *b)
{
    struct stat st_a, st_b;
    unique_fd fd_a = open_regular(a, st_a), fd_b = open_regular(b, st_b);
    if (!fd_a || !fd_b || st_a.st_size != st_b.st_size)
        return false;
    for (char block_a[8192], block_b[8192];;) {
        ssize_t n = read_full(fd_a.get(), block_a, sizeof block_a);
        if (n < 0 || read_full(fd_b.get(), block_b, sizeof block_b) != n ||
            memcmp(block_a, block_b, static_cast<size_t>(n)) != 0)
            return false;
        if (n == 0)
            return true;
    }
}

// Writes "dir/name.ext" with "_NUMBER" before the extension into `out`, the name cut short where the whole
// would be too long for a file name. A dot at the beginning of a name starts no extension. False when it does
// not fit.
static bool numbered(const char *path, int number, char *out)
{
    const char *name = last_component(path);
    const char *ext = strrchr(name, '.');
    if (!ext || ext == name)
        ext = name + strlen(name);
    char suffix[16];
    int added = snprintf(suffix, sizeof suffix, "_%d", number) + static_cast<int>(strlen(ext));
    int stem = static_cast<int>(ext - name);
    if (stem + added > NAME_MAX)
        stem = NAME_MAX - added;
    if (stem < 1)
        return false;
    int n = snprintf(out, MAXPATHLEN, "%.*s%s%s", static_cast<int>(name - path) + stem, path, suffix, ext);
    return n >= 0 && n < MAXPATHLEN;
}

// Replaces `dst` by the next name to try for a file that was to be called `wanted`.
static bool next_name(const char *wanted, int number, bool dos_names, char *dst)
{
    if (!dos_names)
        return numbered(wanted, number, dst);
    const char *ext = strrchr(last_component(wanted), '.');
    return build_unique_DOS_name(dst, ext ? ext : "") != nullptr;
}

// Whether the directory of `path` is on another file system than `device`. False when there is no such
// directory: the rename then fails and reports it.
static bool is_other_file_system(const char *path, dev_t device)
{
    char dir[MAXPATHLEN];
    struct stat st;
    snprintf(dir, sizeof dir, "%s", path);
    return stat(dirname(dir), &st) == 0 && st.st_dev != device;
}

// Whether both paths are one and the same entry of one directory (reached through links, say), not two names
// of a file.
static bool is_same_entry(const char *a, const char *b)
{
    char dir_a[MAXPATHLEN], dir_b[MAXPATHLEN];
    snprintf(dir_a, sizeof dir_a, "%s", a);
    snprintf(dir_b, sizeof dir_b, "%s", b);
    struct stat st_a, st_b;
    return strcmp(last_component(a), last_component(b)) == 0 && stat(dirname(dir_a), &st_a) == 0 &&
           stat(dirname(dir_b), &st_b) == 0 && st_a.st_dev == st_b.st_dev && st_a.st_ino == st_b.st_ino;
}

// Lets `from` take the place of a file of the same bytes. When both are names of one file, rename(2) does
// nothing and succeeds, so the first name is removed instead.
static bool replace(const char *from, const char *dst)
{
    struct stat st_from, st_dst;
    bool same_file = lstat(from, &st_from) == 0 && lstat(dst, &st_dst) == 0 &&
                     st_from.st_dev == st_dst.st_dev && st_from.st_ino == st_dst.st_ino;
    return (same_file ? unlink(from) : rename(from, dst)) == 0 || failed("rename", dst);
}

// Gives `from` the name `dst`, or the next one that is free, which `dst` then holds. False with errno and a
// trace line. The rename itself finds out whether a name is free: looking first would lose a race against
// others who put files there.
static bool give_name(const char *from, char *dst, bool dos_names)
{
    char wanted[MAXPATHLEN];
    snprintf(wanted, sizeof wanted, "%s", dst);
    for (int number = 2; rename_new(from, dst) != 0; number++) {
        if (errno != EEXIST || number > most_names)
            return failed("rename", dst);
        if (is_same_entry(from, dst))
            return true;
        // The same delivery, repeated after a crash or by an impatient client, shall not show the fax twice.
        if (have_same_bytes(from, dst))
            return replace(from, dst);
        if (!next_name(wanted, number, dos_names, dst)) {
            errno = ENAMETOOLONG;
            return failed("rename", wanted);
        }
    }
    return true;
}

// To another file system: a staged copy gets the name. The source is removed only after both bytes and name
// are on the disk, so a failure anywhere leaves at least one whole file.
static int publish_across(const char *src, char *dst, bool dos_names)
{
    char staged[MAXPATHLEN];
    unique_fd copied = copy_staged(src, dst, staged);
    if (!copied)
        return 0;
    const bool flushed = close_flushed(std::move(copied)) || failed("fsync", staged);
    if (!flushed || !give_name(staged, dst, dos_names)) {
        note_remove(staged);
        return 0;
    }
    if (!sync_directory_of(dst))
        return failed("fsync", dst);
    if (!note_remove(src))
        failed("unlink", src);  // the fax is delivered: two copies are better than none
    return 1;
}

int publish(const char *src, char *dst, bool dos_names)
{
    struct stat st;
    unique_fd fd = open_regular(src, st);
    if (!fd)
        return failed("open", src);
    if (is_other_file_system(dst, st.st_dev))
        return publish_across(src, dst, dos_names);
    // The bytes first: once renamed, the file counts as delivered.
    if (!close_flushed(std::move(fd)))
        return failed("fsync", src);
    if (!give_name(src, dst, dos_names))  // EXDEV also between two mounts of one file system
        return errno == EXDEV ? publish_across(src, dst, dos_names) : 0;
    return sync_directory_of(dst) || failed("fsync", dst);
}

}  // namespace faxtray
