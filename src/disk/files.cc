// Every failure is traced here, at the call that failed; errno is kept for those who report it further.
#include "disk/files.h"

#include <fcntl.h>
#include <sys/param.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "disk/flush.h"
#include "disk/work_note.h"
#include "util/io.h"
#include "util/paths.h"
#include "util/process_tag.h"
#include "util/settings.h"
#include "util/trace.h"

namespace faxtray {

static constexpr size_t block_size = 8192;
static constexpr mode_t permission_bits = 0777;

// Copying

static bool open_failed(const char *path)
{
    trprintf("copy: open(\"%s\") failed: %s.\n", path, strerror(errno));
    return false;
}

// Refuses what is no regular file.
static bool is_fit_source(const char *path, int in, struct stat &st)
{
    if (fstat(in, &st) != 0) {
        trprintf("copy: stat(\"%s\") failed: %s.\n", path, strerror(errno));
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        trprintf("copy: \"%s\" isn't a regular file.\n", path);
        return false;
    }
    return true;
}

// Opens for reading. O_NONBLOCK: opening a FIFO would otherwise wait for a writer, and the daemon with it.
static bool open_source(const char *path, unique_fd &in, struct stat &st, int flags = 0)
{
    in.reset(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | flags));
    return in ? is_fit_source(path, in.get(), st) : open_failed(path);
}

// The path of the copy of `src`: `dst`, or the same name in it when that is a directory. False with errno
// when it is too long.
static bool target_path(const char *src, const char *dst, char (&path)[MAXPATHLEN])
{
    // Kept: without a "/" the name begins after the last "\". Files saved under a path of another system's
    // arrive without its directories.
    const char *last = strrchr(src, '/');
    if (!last)
        last = strrchr(src, '\\');
    const char *name = last ? last + 1 : src;

    struct stat st;
    bool into = stat(dst, &st) == 0 && S_ISDIR(st.st_mode);
    int n = into ? snprintf(path, sizeof path, "%s/%s", dst, name) : snprintf(path, sizeof path, "%s", dst);
    if (n >= 0 && n < static_cast<int>(sizeof path))
        return true;
    errno = ENAMETOOLONG;
    return open_failed(dst);
}

// Refuses the source itself, which opening would empty, and anything but a regular file.
static bool is_fit_target(const char *path, const struct stat &source, const struct stat &target)
{
    if (target.st_dev == source.st_dev && target.st_ino == source.st_ino) {
        errno = EEXIST;
        return open_failed(path);
    }
    if (!S_ISREG(target.st_mode))
        trprintf("copy: \"%s\" isn't a regular file.\n", path);
    return S_ISREG(target.st_mode);
}

// Opens the target empty, with the source's permissions: a new one less the umask. False with a trace line; a
// target that was opened all the same is in `out`, for the caller to remove.
static bool open_target(const char *path, const struct stat &source, unique_fd &out)
{
    struct stat st;
    bool exists = stat(path, &st) == 0;
    if (exists && !is_fit_target(path, source, st))
        return false;
    out.reset(
        open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOCTTY | O_CLOEXEC, source.st_mode & permission_bits));
    if (!out)
        return open_failed(path);
    if (exists && fchmod(out.get(), source.st_mode & permission_bits) != 0) {
        trprintf("copy: fchmod(\"%s\") failed: %s.\n", path, strerror(errno));
        return false;
    }
    return true;
}

static bool write_failed(const char *path)
{
    trprintf("copy: write(\"%s\") failed: %s.\n", path, strerror(errno));
    return false;
}

static bool copy_bytes(const char *src, int in, const char *dst, int out)
{
    char block[block_size];
    for (;;) {
        const ssize_t n = read_full(in, block, sizeof block);
        if (n == 0)
            return true;
        if (n < 0) {
            trprintf("copy: read(\"%s\") failed: %s.\n", src, strerror(errno));
            return false;
        }
        if (!write_full(out, block, static_cast<size_t>(n)))
            return write_failed(dst);
    }
}

// Called on the way out of a failure, so it keeps that failure's errno.
static void remove_half_made(const char *path)
{
    const int error = errno;
    if (!note_remove(path) && errno != ENOENT)
        trprintf("copy: unlink(\"%s\") failed: %s.\n", path, strerror(errno));
    errno = error;
}

int copy(const char *src, const char *dst)
{
    unique_fd in, out;
    struct stat st;
    char path[MAXPATHLEN];
    if (!open_source(src, in, st) || !target_path(src, dst, path))
        return 0;
    bool good = open_target(path, st, out) && copy_bytes(src, in.get(), path, out.get());
    const bool made = static_cast<bool>(out);
    // close() is where a file system over the network reports what it could not store.
    if (made && close(out.release()) != 0 && good)
        good = write_failed(path);
    if (made && !good)
        remove_half_made(path);
    return good;
}

// New files under names of their own

// A new name beside `dst`, where no other process makes one; false when it does not fit.
static bool staged_path(const char *dst, char *path)
{
    static unsigned number;
    const char *name = last_component(dst);
    int length = static_cast<int>(name - dst);
    number++;
    int n = snprintf(path, MAXPATHLEN, "%.*sii_%s.%s-%u", length, dst, name, process_tag(), number);
    // A name that is almost as long as names may be leaves no room for ours around it.
    if (n >= MAXPATHLEN || n - length > NAME_MAX)
        n = snprintf(path, MAXPATHLEN, "%.*sii_%s-%u", length, dst, process_tag(), number);
    return n < MAXPATHLEN;
}

// Noted before and after, so that a crash between the two is covered.
unique_fd make_new(const char *path, mode_t mode)
{
    struct stat st;
    if (lstat(path, &st) == 0) {  // we shall not make it, so it must not be noted
        errno = EEXIST;
        return {};
    }
    note_will_make(path);
    unique_fd fd(open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (fd)
        note_made(path);
    return fd;
}

void give_permissions(int fd, const char *path, mode_t mode)
{
    if (fchmod(fd, mode & permission_bits) != 0)
        trprintf("copy: fchmod(\"%s\") failed: %s.\n", path, strerror(errno));
}

// As copy_staged, with the source open at `in`.
static unique_fd stage(int in, const struct stat &st, const char *src, const char *dst, char *staged)
{
    unique_fd out;
    // A dead process that had our pid may have left the name in use: take the next.
    do {
        if (staged_path(dst, staged))
            out = make_new(staged, st.st_mode & permission_bits);
        else
            errno = ENAMETOOLONG;
    } while (!out && errno == EEXIST);
    if (!out) {
        open_failed(staged);
        return {};
    }
    if (!copy_bytes(src, in, staged, out.get())) {
        remove_half_made(staged);
        return {};
    }
    give_permissions(out.get(), staged, st.st_mode);
    return out;
}

unique_fd copy_staged(const char *src, const char *dst, char *staged)
{
    unique_fd in;
    struct stat st;
    return open_source(src, in, st, O_NOFOLLOW) ? stage(in.get(), st, src, dst, staged) : unique_fd();
}

int unique_file(const char *prefix, char *path)
{
    static constexpr char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEF";  // 32, one for five bits
    for (;;) {
        char name[7] = "";
        path[0] = '\0';
        if (getrandom(name, sizeof name - 1, 0) < 0)
            return -1;
        for (size_t i = 0; i < sizeof name - 1; i++)
            name[i] = letters[name[i] & 31];
        snprintf(path, MAXPATHLEN, "%s/%s%s", dvWork_dir, prefix, name);
        unique_fd fd = make_new(path, 0600);
        if (fd || errno != EEXIST)
            return fd.release();
    }
}

// Into place

int rename_new(const char *from, const char *to)
{
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return -1;
    // The file system does not know that call. link(2) never replaces: give the file a second name, then
    // remove the first.
    if (link(from, to) == 0) {
        unlink(from);
        return 0;
    }
    if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS && errno != EMLINK)
        return -1;
    // Nor does it have links. A file created at `to` between the look and the rename would be replaced; the
    // trace says so, because refusing would stop every delivery to such a file system.
    trprintf("rename_new: \"%s\" is on a file system that cannot keep a rename from replacing.\n", to);
    struct stat st;
    if (lstat(to, &st) != 0)
        return rename(from, to);
    errno = EEXIST;
    return -1;
}

bool put_in_place(unique_fd fd, const char *staged, const char *dst, bool replace)
{
    if (!close_flushed(std::move(fd)))
        return false;
    note_will_move(staged, dst);
    return (replace ? rename(staged, dst) : rename_new(staged, dst)) == 0 && sync_directory_of(dst);
}

// Moving

// By way of a staged copy, for what rename cannot do. The source stays. False with errno.
static bool copy_across(const char *src, const char *dst, bool replace)
{
    struct stat from, to;
    char path[MAXPATHLEN], staged[MAXPATHLEN];
    if (stat(src, &from) != 0 || !target_path(src, dst, path))
        return false;
    if (stat(path, &to) == 0 && !is_fit_target(path, from, to))
        return false;
    unique_fd out = copy_staged(src, path, staged);
    if (!out)
        return false;
    if (put_in_place(std::move(out), staged, path, replace))
        return true;
    remove_half_made(staged);
    return false;
}

static int move_file(const char *src, const char *dst, bool replace)
{
    struct stat st;
    if (lstat(src, &st) != 0) {
        trprintf("cv_move: stat(\"%s\") failed: %s.\n", src, strerror(errno));
        return 0;
    }
    if (!S_ISREG(st.st_mode)) {
        trprintf("cv_move: \"%s\" isn't a regular file.\n", src);
        return 0;
    }
    note_will_move(src, dst);
    if ((replace ? rename(src, dst) : rename_new(src, dst)) == 0)
        return 1;
    // Into a directory, to another file system, or more names than a file may have: copied instead.
    if (errno != EISDIR && errno != EXDEV && errno != EMLINK) {
        trprintf("cv_move: rename(\"%s\",\"%s\") failed: %s.\n", src, dst, strerror(errno));
        return 0;
    }
    if (!copy_across(src, dst, replace)) {
        trprintf("cv_move: copy(\"%s\",\"%s\") failed: %s.\n", src, dst, strerror(errno));
        return 0;
    }
    if (unlink(src) != 0) {
        trprintf("cv_move: unlink(\"%s\") failed: %s.\n", src, strerror(errno));
        return 0;
    }
    return 1;
}

int cv_move(const char *src, const char *dst)
{
    return move_file(src, dst, true);
}

int move_new(const char *src, const char *dst)
{
    return move_file(src, dst, false);
}

static int copy_to_new(int in, const struct stat &st, const char *src, const char *dst)
{
    char staged[MAXPATHLEN];
    unique_fd out = stage(in, st, src, dst, staged);
    if (!out)
        return 0;
    bool good = close(out.release()) == 0 || write_failed(staged);
    if (good) {
        note_will_move(staged, dst);
        good = rename_new(staged, dst) == 0;
        if (!good)
            trprintf("copy: rename(\"%s\",\"%s\") failed: %s.\n", staged, dst, strerror(errno));
    }
    if (!good)
        remove_half_made(staged);
    return good;
}

int copy_new(const char *src, const char *dst)
{
    unique_fd in;
    struct stat st;
    return open_source(src, in, st) && copy_to_new(in.get(), st, src, dst);
}

int copy_new_open(int fd, const char *src, const char *dst)
{
    struct stat st;
    return is_fit_source(src, fd, st) && lseek(fd, 0, SEEK_SET) == 0 && copy_to_new(fd, st, src, dst);
}

int cv_ftruncate(int fd, off_t length)
{
    if (ftruncate(fd, length) == 0)
        return 0;
    int error = errno;
    // Kept: the length and not the descriptor in the brackets; existing traces are read that way.
    trprintf("cv_ftruncate:  ftruncate(%d), errno=%d\n", static_cast<int>(length), error);
    errno = error;
    return -1;
}

}  // namespace faxtray
