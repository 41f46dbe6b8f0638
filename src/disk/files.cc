// Copying, moving and cutting files. Whatever fails, the source stays and no half-made target does.
#include "disk/files.h"

#include <fcntl.h>
#include <sys/param.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "disk/work_note.h"
#include "util/owned.h"
#include "util/paths.h"
#include "util/settings.h"
#include "util/trace.h"

namespace faxtray {

static constexpr size_t block_size = 8192;
static constexpr mode_t permission_bits = 0777;

static bool open_failed(const char *path)
{
    trprintf("copy: open(\"%s\") failed: %s.\n", path, strerror(errno));
    return false;
}

// Opens without waiting for the other end of a pipe, which is refused afterwards.
static bool open_source(const char *path, unique_fd &in, struct stat &st)
{
    in.reset(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!in)
        return open_failed(path);
    if (fstat(in.get(), &st) != 0) {
        trprintf("copy: stat(\"%s\") failed: %s.\n", path, strerror(errno));
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        trprintf("copy: \"%s\" isn't a regular file.\n", path);
        return false;
    }
    return true;
}

// Where the copy of `src` goes: `dst`, or into it when it is a directory.
static bool target_path(const char *src, const char *dst, char (&path)[MAXPATHLEN])
{
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

// Refuses the source itself and what is no regular file as a target.
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

// Opens the target empty, with the source's permissions: a new one less the umask.
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

static bool write_all(int fd, const char *bytes, size_t n)
{
    while (n > 0) {
        ssize_t written = write(fd, bytes, n);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        bytes += written;
        n -= static_cast<size_t>(written);
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
        ssize_t n = read(in, block, sizeof block);
        if (n == 0)
            return true;
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            trprintf("copy: read(\"%s\") failed: %s.\n", src, strerror(errno));
            return false;
        }
        if (!write_all(out, block, static_cast<size_t>(n)))
            return write_failed(dst);
    }
}

void sync_directory_of(const char *path)
{
    char dir[MAXPATHLEN];
    snprintf(dir, sizeof dir, "%s", path);
    unique_fd fd(open(dirname(dir), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd)
        fsync(fd.get());
}

static void remove_half_made(const char *path)
{
    if (unlink(path) != 0)
        trprintf("copy: unlink(\"%s\") failed: %s.\n", path, strerror(errno));
}

// Fills the open file at `path` and closes it. 1, or 0 with the file removed. With `to_disk` its bytes are
// on the disk itself, so that the source may go.
static int fill(const char *src, int in, const char *path, unique_fd out, bool to_disk)
{
    bool good = copy_bytes(src, in, path, out.get());
    if (good && to_disk && fsync(out.get()) != 0)
        good = write_failed(path);
    if (close(out.release()) != 0 && good)
        good = write_failed(path);
    if (!good)
        remove_half_made(path);
    return good;
}

int copy(const char *src, const char *dst)
{
    unique_fd in, out;
    struct stat st;
    char path[MAXPATHLEN];
    if (!open_source(src, in, st) || !target_path(src, dst, path))
        return 0;
    bool good = open_target(path, st, out);
    if (out && !good)
        remove_half_made(path);
    return good && fill(src, in.get(), path, std::move(out), false);
}

// Names of our own

// A name beside `dst` that no other process uses; false when it does not fit.
static bool staged_path(const char *dst, char *path)
{
    static unsigned number;
    const char *name = last_component(dst);
    int length = static_cast<int>(name - dst);
    int pid = static_cast<int>(getpid());
    number++;
    int n = snprintf(path, MAXPATHLEN, "%.*sii_%s.%d-%u", length, dst, name, pid, number);
    if (n >= MAXPATHLEN || n - length > NAME_MAX)
        n = snprintf(path, MAXPATHLEN, "%.*sii_%d-%u", length, dst, pid, number);
    return n < MAXPATHLEN;
}

// Opens a new file where nothing stands.
static unique_fd open_new(const char *path, mode_t mode)
{
    note_will_make(path);
    unique_fd fd(open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (fd)
        note_made(path);
    return fd;
}

int copy_staged(const char *src, const char *dst, bool to_disk, char *staged)
{
    unique_fd in, out;
    struct stat st;
    if (!open_source(src, in, st))
        return 0;
    do {
        if (staged_path(dst, staged))
            out = open_new(staged, st.st_mode & permission_bits);
        else
            errno = ENAMETOOLONG;
    } while (!out && errno == EEXIST);
    if (!out)
        return open_failed(staged);
    return fill(src, in.get(), staged, std::move(out), to_disk);
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
        unique_fd fd = open_new(path, 0666);
        if (fd || errno != EEXIST)
            return fd.release();
    }
}

// Moving

int rename_new(const char *from, const char *to)
{
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return -1;
    // A file system without that: a second name, then one less.
    if (link(from, to) == 0) {
        unlink(from);
        return 0;
    }
    if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS && errno != EMLINK)
        return -1;
    // Without links too, looking comes before moving; what appears in between would be replaced.
    trprintf("rename_new: \"%s\" is on a file system that cannot keep a rename from replacing.\n", to);
    struct stat st;
    if (lstat(to, &st) != 0)
        return rename(from, to);
    errno = EEXIST;
    return -1;
}

static int rename_over(const char *from, const char *to)
{
    return rename(from, to);
}

using rename_function = int (*)(const char *, const char *);

// Moves by way of a staged copy.
static int move_across(const char *src, const char *dst, rename_function do_rename)
{
    struct stat from, to;
    char path[MAXPATHLEN], staged[MAXPATHLEN];
    if (stat(src, &from) != 0 || !target_path(src, dst, path))
        return 0;
    bool exists = stat(path, &to) == 0;
    if (exists && !is_fit_target(path, from, to))
        return 0;
    if (!copy_staged(src, path, true, staged))
        return 0;
    note_will_move(staged, path);
    if ((exists && chmod(staged, from.st_mode & permission_bits) != 0) || do_rename(staged, path) != 0) {
        int error = errno;
        remove_half_made(staged);
        errno = error;
        return 0;
    }
    sync_directory_of(path);
    return 1;
}

static int move_file(const char *src, const char *dst, rename_function do_rename)
{
    struct stat st;
    if (stat(src, &st) != 0) {
        trprintf("cv_move: stat(\"%s\") failed: %s.\n", src, strerror(errno));
        return 0;
    }
    if (!S_ISREG(st.st_mode)) {
        trprintf("cv_move: \"%s\" isn't a regular file.\n", src);
        return 0;
    }
    note_will_move(src, dst);
    if (do_rename(src, dst) == 0)
        return 1;
    if (errno != EISDIR && errno != EXDEV && errno != EMLINK) {
        trprintf("cv_move: rename(\"%s\",\"%s\") failed: %s.\n", src, dst, strerror(errno));
        return 0;
    }
    if (!move_across(src, dst, do_rename)) {
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
    return move_file(src, dst, rename_over);
}

int move_new(const char *src, const char *dst)
{
    return move_file(src, dst, rename_new);
}

int copy_new(const char *src, const char *dst)
{
    char staged[MAXPATHLEN];
    if (!copy_staged(src, dst, false, staged))
        return 0;
    note_will_move(staged, dst);
    if (rename_new(staged, dst) == 0)
        return 1;
    int error = errno;
    trprintf("copy: rename(\"%s\",\"%s\") failed: %s.\n", staged, dst, strerror(error));
    remove_half_made(staged);
    errno = error;
    return 0;
}

int cv_ftruncate(int fd, off_t length)
{
    if (ftruncate(fd, length) == 0)
        return 0;
    int error = errno;
    // Kept: the length, where the descriptor would be looked for.
    trprintf("cv_ftruncate:  ftruncate(%d), errno=%d\n", static_cast<int>(length), error);
    errno = error;
    return -1;
}

}  // namespace faxtray
