// The counter file is in a directory that other users may write to (/tmp by default). What they put in its
// place must neither be followed nor steer the daemon: at worst the counter starts from 0.
#include "disk/file_names.h"

#include <fcntl.h>
#include <sys/param.h>
#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "util/clock_text.h"
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

// Reads the counter from the file `path` and removes it, so that a crash before keep_counter() starts over
// instead of counting from the same value twice. 0 when there is no file or no usable number in it.
static int take_counter(const char *path)
{
    // Neither through a link nor, for a FIFO, until somebody writes to it.
    unique_fd fd(open(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) {
        if (errno != ENOENT)
            trprintf("open(\"%s\") failed: %s. Setting extension back to 0.\n", path, strerror(errno));
        return 0;
    }
    char text[32] = "";
    bool read_some = read(fd.get(), text, sizeof text - 1) > 0;
    unlink(path);
    long counter = read_some ? strtol(text, nullptr, 10) : 0;
    return counter >= 0 && counter < counter_limit ? static_cast<int>(counter) : 0;
}

// Writes the next counter into a file made for it: O_EXCL, so that a link put there meanwhile is not written
// through. Losing the counter costs a few names that are tried in vain, so a failure is only traced.
static void keep_counter(const char *path, int counter)
{
    unlink(path);
    unique_fd out(open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!out) {
        trprintf("open(\"%s\") failed: %s.\n", path, strerror(errno));
        return;
    }
    if (dprintf(out.get(), "%d\n", counter) < 0)
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

    // lstat(): a dangling link takes a name as well as a file does.
    int counter = take_counter(counter_path);
    struct stat st;
    do {
        int n = snprintf(name, room, "%s%s%s", stem, int_to_base_26(counter++), ext ? ext : ".fax");
        if (n < 0 || static_cast<size_t>(n) >= room) {
            errno = ENAMETOOLONG;
            return nullptr;
        }
    } while (lstat(path, &st) == 0);
    keep_counter(counter_path, counter);
    return path;
}

}  // namespace faxtray
