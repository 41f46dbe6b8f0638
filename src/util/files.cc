// Copying, moving and cutting files. Whatever fails, the source stays and no half-made target does.
#include "util/files.h"

#include <fcntl.h>
#include <sys/param.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "util/owned.h"
#include "util/paths.h"
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

// Opens the target empty, with the source's permissions: a new one less the umask. The source itself
// and what is no regular file are refused untouched.
static bool open_target(const char *path, const struct stat &source, unique_fd &out)
{
    struct stat st;
    bool exists = stat(path, &st) == 0;
    if (exists && st.st_dev == source.st_dev && st.st_ino == source.st_ino) {
        errno = EEXIST;
        return open_failed(path);
    }
    if (exists && !S_ISREG(st.st_mode)) {
        trprintf("copy: \"%s\" isn't a regular file.\n", path);
        return false;
    }
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

// Puts the name itself on the disk, as far as the file system can.
static void sync_directory_of(const char *path)
{
    char dir[MAXPATHLEN];
    snprintf(dir, sizeof dir, "%s", path);
    unique_fd fd(open(dirname(dir), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd)
        fsync(fd.get());
}

// With `to_disk` the copy is on the disk itself when this returns 1, so that the source may go.
static int copy_file(const char *src, const char *dst, bool to_disk)
{
    unique_fd in, out;
    struct stat st;
    char path[MAXPATHLEN];
    if (!open_source(src, in, st) || !target_path(src, dst, path))
        return 0;
    bool good = open_target(path, st, out);
    if (!out)
        return 0;
    good = good && copy_bytes(src, in.get(), path, out.get());
    if (good && to_disk && fsync(out.get()) != 0)
        good = write_failed(path);
    if (close(out.release()) != 0 && good)
        good = write_failed(path);
    if (good && to_disk)
        sync_directory_of(path);
    if (!good && unlink(path) != 0)
        trprintf("copy: unlink(\"%s\") failed: %s.\n", path, strerror(errno));
    return good;
}

int copy(const char *src, const char *dst)
{
    return copy_file(src, dst, false);
}

int cv_move(const char *src, const char *dst)
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
    if (rename(src, dst) == 0)
        return 1;
    if (errno != EISDIR && errno != EXDEV && errno != EMLINK) {
        trprintf("cv_move: rename(\"%s\",\"%s\") failed: %s.\n", src, dst, strerror(errno));
        return 0;
    }
    if (!copy_file(src, dst, true)) {
        trprintf("cv_move: copy(\"%s\",\"%s\") failed: %s.\n", src, dst, strerror(errno));
        return 0;
    }
    if (unlink(src) != 0) {
        trprintf("cv_move: unlink(\"%s\") failed: %s.\n", src, strerror(errno));
        return 0;
    }
    return 1;
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
