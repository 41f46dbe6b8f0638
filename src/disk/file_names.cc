// The counter file is in a directory that other users may write to (/tmp by default). What they put in its
// place must neither be followed nor steer the daemon: at worst the counter starts from 0.
#include "disk/file_names.h"

#include <fcntl.h>
#include <sys/param.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "util/clock_text.h"
#include "util/file_lock.h"
#include "util/io.h"
#include "util/owned.h"
#include "util/paths.h"
#include "util/trace.h"

namespace faxtray {

// Kept: no "Q". Names made so far have "_" in its place, and users look for their files by them.
static constexpr char ok_array[] = "-.0123456789_abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPRSTUVWXYZ";

char *posix_file_name_filter(const char *name, char *out)
{
    char *end = out;
    for (; *name; name++) {
        if (static_cast<unsigned char>(*name) > 127)
            continue;
        *end++ = strchr(ok_array, *name) ? *name : '_';
    }
    *end = '\0';
    return out;
}

const char *int_to_base_26(int n)
{
    static char text[16];
    char *p = text + sizeof text - 1;
    char *padded = p - 3;
    // Digits from the last to the first, at least down to `padded`.
    for (n = n < 0 ? 0 : n; n > 0 || p > padded; n /= 26)
        *--p = static_cast<char>('a' + n % 26);
    return p;
}

// A counter read from the file starts over from here: below 26^3, so that three letters are enough, with a
// few to spare for names that are taken.
static constexpr long counter_limit = 17573;

// Opens the counter's file, none with a trace line. What is not a plain file of our own is replaced by one:
// it is neither followed, waited for nor written through.
static unique_fd open_counter(const char *path)
{
    struct stat st;
    unique_fd fd(open(path, O_RDWR | O_CREAT | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC, 0666));
    if (fd && fstat(fd.get(), &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == geteuid() && st.st_nlink == 1)
        return fd;
    if (!fd && errno != ENOENT)
        trprintf("open(\"%s\") failed: %s. Setting extension back to 0.\n", path, strerror(errno));
    unlink(path);
    fd.reset(open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!fd)
        trprintf("open(\"%s\") failed: %s.\n", path, strerror(errno));
    return fd;
}

// The number in the file; 0 when there is no usable one.
static int read_counter(int fd)
{
    char text[32] = "";
    const bool read_some = pread(fd, text, sizeof text - 1, 0) > 0;
    const long counter = read_some ? strtol(text, nullptr, 10) : 0;
    return counter >= 0 && counter < counter_limit ? static_cast<int>(counter) : 0;
}

// Losing the counter costs a few names that are tried in vain, so a failure is only traced.
static void keep_counter(int fd, const char *path, int counter)
{
    char text[32];
    const int n = snprintf(text, sizeof text, "%d\n", counter);
    if (ftruncate(fd, 0) != 0 || !write_full_at(fd, text, static_cast<size_t>(n), 0) ||
        (is_on_network(fd) && fdatasync(fd) != 0))
        trprintf("write(\"%s\") failed: %s.\n", path, strerror(errno));
}

// The month and day of `ctime` text as five characters: "nov05".
static void date_stem(char (&stem)[6])
{
    const char *now = cv_ctime(nullptr);  // "Thu Nov  5 18:22:48 2026"
    snprintf(stem, sizeof stem, "%.3s%.2s", now + 4, now + 8);
    stem[0] = static_cast<char>(tolower(static_cast<unsigned char>(stem[0])));
    if (stem[3] == ' ')
        stem[3] = '0';
}

char *build_unique_DOS_name(char *path, const char *ext)
{
    char counter_path[MAXPATHLEN + sizeof "/i_d_order"];
    snprintf(counter_path, sizeof counter_path, "%s/i_d_order", get_temp_dir());

    // Kept: the last "\" ends the directory when there is no "/", as in copy().
    char *last = strrchr(path, '/');
    if (!last)
        last = strrchr(path, '\\');
    char *name = last ? last + 1 : path;
    size_t room = MAXPATHLEN - static_cast<size_t>(name - path);
    char stem[6];
    date_stem(stem);

    // Locked from reading to writing: other hosts may count in the same file.
    const unique_fd file = open_counter(counter_path);
    const file_locked while_counting(file.get());
    int counter = file ? read_counter(file.get()) : 0;
    // lstat(): a dangling link takes a name as well as a file does.
    struct stat st;
    do {
        int n = snprintf(name, room, "%s%s%s", stem, int_to_base_26(counter++), ext ? ext : ".fax");
        if (n < 0 || static_cast<size_t>(n) >= room) {
            errno = ENAMETOOLONG;
            return nullptr;
        }
    } while (lstat(path, &st) == 0);
    if (file)
        keep_counter(file.get(), counter_path, counter);
    return path;
}

}  // namespace faxtray
