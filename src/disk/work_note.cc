// The first line of the note is the id of the boot of its host. Each other is "KIND DEVICE:INODE:BIRTH PATH
// .", written by one write(2) with a line feed on either side: a line torn by a crash or a full disk lacks
// the dot and does not spoil the next one. Blanks, control characters and "%" in the path are written as "%"
// and two hexadecimal digits.
#include "disk/work_note.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/param.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "disk/dir_list.h"
#include "disk/flush.h"
#include "util/file_lock.h"
#include "util/io.h"
#include "util/owned.h"
#include "util/paths.h"
#include "util/process_tag.h"
#include "util/settings.h"
#include "util/trace.h"

namespace faxtray {

namespace {

// Which file is at a path; all zero for none. The birth time tells it from a later file that was given the
// same inode number, which happens at once on most file systems. (GlusterFS keeps none, but never gives an
// inode number again.)
struct identity_t {
    uint64_t device, inode;  // device 0: its number is given at each mount, and differs between hosts
    int64_t birth;           // nanoseconds since 1970; 0 where the file system keeps none

    bool operator==(const identity_t &) const = default;
};

enum : char { WILL_MAKE = 'w', MADE = 'm' };

struct entry_t {
    char kind;
    identity_t identity;  // of the noted file; for WILL_MAKE, of what was at the path before
    char path[MAXPATHLEN];
};

constexpr size_t line_size = 3 * MAXPATHLEN + 128;

}  // namespace

static int depth;       // how many note_begin() wait for their note_end()
static unique_fd note;  // the note being written; none outside a delivery, or when it could not be made
static char note_path[MAXPATHLEN];            // its path
static bool name_on_disk;                     // whether that name has been flushed
static std::vector<std::string> not_removed;  // by note_remove()

// Fills in the file at `path`, no link followed, and its owner. False unless it is a regular file; `identity`
// is then that of what is there all the same.
static bool identify(const char *path, identity_t &identity, uid_t &owner)
{
    identity = {};
    struct statx st;
    if (statx(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME, &st) != 0)
        return false;
    if (st.stx_dev_major != 0)
        identity.device = static_cast<uint64_t>(st.stx_dev_major) << 32 | st.stx_dev_minor;
    identity.inode = st.stx_ino;
    if (st.stx_mask & STATX_BTIME)
        identity.birth = st.stx_btime.tv_sec * 1'000'000'000 + st.stx_btime.tv_nsec;
    owner = st.stx_uid;
    return S_ISREG(st.stx_mode);
}

// Writing

// Writes `path`, made absolute, into `out` as a line holds it; false when it is too long.
static bool escape(const char *path, char *out, size_t size)
{
    char directory[MAXPATHLEN] = "";
    if (*path != '/' && !getcwd(directory, sizeof directory))
        return false;
    if (strlen(directory) + 1 + strlen(path) >= MAXPATHLEN)
        return false;
    size_t n = 0;
    // At most three characters and the final zero a time, so nothing is cut in the middle.
    auto put = [&](const char *text) {
        for (; *text && n + 4 < size; text++) {
            auto byte = static_cast<unsigned char>(*text);
            bool plain = byte > ' ' && byte != '%';
            n += static_cast<size_t>(snprintf(out + n, size - n, plain ? "%c" : "%%%02x", byte));
        }
    };
    if (*directory) {
        put(directory);
        put("/");
    }
    put(path);
    return true;
}

// Appends a line, by a single write. A failure is traced and no more: the delivery matters, the note only
// helps to clean up after it.
static void add_line(char kind, const identity_t &id, const char *path)
{
    char escaped[3 * MAXPATHLEN], line[line_size];
    if (!escape(path, escaped, sizeof escaped)) {
        trprintf("work_note: cannot note \"%s\"\n", path);
        return;
    }
    int n = snprintf(line, sizeof line, "\n%c %llx:%llx:%llx %s .\n", kind,
                     static_cast<unsigned long long>(id.device), static_cast<unsigned long long>(id.inode),
                     static_cast<unsigned long long>(id.birth), escaped);
    ssize_t written = write(note.get(), line, static_cast<size_t>(n));
    if (written != n)
        trprintf("work_note: write(\"%s\") failed: %s.\n", note_path,
                 written < 0 ? strerror(errno) : "short");
}

void note_will_make(const char *path)
{
    identity_t before;
    uid_t owner;
    if (!note)
        return;
    identify(path, before, owner);
    add_line(WILL_MAKE, before, path);
}

void note_made(const char *path)
{
    identity_t made;
    uid_t owner;
    if (note && identify(path, made, owner))
        add_line(MADE, made, path);
}

void note_will_move(const char *from, const char *to)
{
    identity_t moved;
    uid_t owner;
    if (!note || !identify(from, moved, owner))
        return;
    add_line(MADE, moved, to);
    // Once renamed, the file looks like any fax: the note must survive whatever the rename survives.
    if (fdatasync(note.get()) != 0)
        trprintf("work_note: fdatasync(\"%s\") failed: %s.\n", note_path, strerror(errno));
    name_on_disk = name_on_disk || sync_directory_of(note_path);
}

bool note_remove(const char *path)
{
    if (unlink(path) == 0)
        return true;
    const int error = errno;
    try {
        if (error != ENOENT && note)
            not_removed.emplace_back(path);
    } catch (const std::bad_alloc &) {
        trprintf("work_note: cannot note \"%s\"\n", path);
    }
    errno = error;
    return false;
}

// Beginning and ending

// Locks a new note and writes its first line. False with errno; EAGAIN also if another start of the daemon
// took it for a dead process's before it was locked, and removed it.
static bool claim_note(int fd)
{
    struct stat st;
    if (!lock_file(fd) || fstat(fd, &st) != 0)
        return false;
    errno = EAGAIN;
    return st.st_nlink > 0 && write_full(fd, boot_id(), strlen(boot_id())) && write_full(fd, "\n", 1);
}

// Creates and locks a note; none with errno.
static unique_fd new_note()
{
    for (unsigned n = 0; n < 1000; n++) {
        snprintf(note_path, sizeof note_path, "%s/delivery_note.%s.%d.%u", dvWork_dir, host_name(),
                 static_cast<int>(getpid()), n);
        unique_fd fd(open(note_path, O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600));
        if (!fd && errno == EEXIST)  // of a dead process that had our pid
            continue;
        if (!fd || claim_note(fd.get()))
            return fd;
        const int error = errno;
        unlink(note_path);
        errno = error;
        if (error != EAGAIN)
            break;
    }
    return {};
}

int note_begin()
{
    if (depth++ > 0)
        return static_cast<bool>(note);
    name_on_disk = false;
    note = new_note();
    if (!note)
        trprintf("note_begin: open(\"%s\") failed: %s.\n", note_path, strerror(errno));
    return static_cast<bool>(note);
}

void note_end()
{
    if (depth == 0 || --depth > 0 || !note)
        return;
    // What else the note names may have been delivered meanwhile: only what could not be removed stays in it.
    if (!not_removed.empty() && ftruncate(note.get(), 0) == 0)
        for (const std::string &path : std::exchange(not_removed, {}))
            note_made(path.c_str());
    else if (unlink(note_path) != 0)
        trprintf("note_end: unlink(\"%s\") failed: %s.\n", note_path, strerror(errno));
    note.reset();
}

// Reading notes

static bool unescape(const char *text, char (&out)[MAXPATHLEN])
{
    size_t n = 0;
    for (; *text; n++) {
        unsigned byte = static_cast<unsigned char>(*text++);
        if (byte == '%') {
            if (sscanf(text, "%2x", &byte) != 1 || !text[1])
                return false;
            text += 2;
        }
        if (n + 1 >= sizeof out)
            return false;
        out[n] = static_cast<char>(byte);
    }
    out[n] = '\0';
    return out[0] == '/';
}

static bool parse(const char *line, entry_t &entry)
{
    char escaped[3 * MAXPATHLEN];
    unsigned long long device, inode, birth;
    int end = 0;
    static_assert(sizeof escaped > 12287);
    if (sscanf(line, "%c %llx:%llx:%llx %12287s .%n", &entry.kind, &device, &inode, &birth, escaped, &end) !=
            5 ||
        end == 0 || line[end] != '\n')
        return false;
    entry.identity = {device, inode, static_cast<int64_t>(birth)};
    return unescape(escaped, entry.path);
}

namespace {

// A note that was found.
struct found_note_t {
    char path[MAXPATHLEN];
    char host[256];  // "": a note of a release that knew of one host only
    char pid[16];
};

}  // namespace

// Whether a file of that name can only have been made by the process of that number (see the header).
static bool is_our_name(const char *path, const char *pid)
{
    const char *name = last_component(path);
    for (const char *prefix : {"ii_", "FDF.", "FDM."})
        if (strncmp(name, prefix, strlen(prefix)) == 0)
            return true;
    const char *ext = strrchr(name, '.');
    const size_t digits = strlen(pid);
    const bool has_pid =
        ext && strncmp(ext + 1, pid, digits) == 0 && (!ext[1 + digits] || ext[1 + digits] == '-');
    return has_pid || (name == path + strlen("/tmp/") && strncmp(path, "/tmp/", strlen("/tmp/")) == 0);
}

// Whether the file at an entry's path is what the entry speaks of, and not somebody's fax.
static bool is_left_over(const entry_t &entry, const char *pid)
{
    identity_t now;
    uid_t owner;
    if (!identify(entry.path, now, owner))
        return false;
    if (entry.kind == MADE)
        return now == entry.identity;
    return entry.kind == WILL_MAKE && now != entry.identity && owner == geteuid() &&
           is_our_name(entry.path, pid);
}

// Takes the name "delivery_note.HOST.PID.N" apart; host names may have dots in them.
static bool parse_name(const char *name, found_note_t &found)
{
    const std::string_view text = strchr(name, '.') + 1;
    const size_t last = text.rfind('.');
    if (last == text.npos || last == 0)
        return false;
    const size_t before = text.rfind('.', last - 1), pid = before + 1;  // 0 if there is no dot before
    if (pid > sizeof found.host || last - pid >= sizeof found.pid)
        return false;
    found.host[text.copy(found.host, before == text.npos ? 0 : before)] = '\0';
    found.pid[text.copy(found.pid, last - pid, pid)] = '\0';
    return snprintf(found.path, sizeof found.path, "%s/%s", dvWork_dir, name) <
           static_cast<int>(sizeof found.path);
}

// Calls `visit` with each note.
template <class Visit> static void for_each_note(Visit visit)
{
    std::unique_ptr<dir_list_t, deleter<dir_close>> list(dir_open(dvWork_dir));
    if (!list)
        return;
    const char *pattern = "^delivery_note[.]";
    while (const char *name = dir_grep(list.get(), pattern)) {
        pattern = nullptr;
        if (found_note_t found; parse_name(name, found))
            visit(found);
    }
}

// Only a regular file of our own user is believed: the work directory may be open to others, and a forged
// note would have us remove their victims' files. Null otherwise.
static file_ptr open_note(const char *path)
{
    unique_fd fd(open(path, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat st;
    if (!fd || fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != geteuid())
        return nullptr;
    file_ptr in(fdopen(fd.get(), "r"));
    if (in)
        (void)fd.release();
    return in;
}

// Reads on to the next file that is there and that the note names. False at the end.
static bool next_file(FILE *in, const char *pid, entry_t &entry)
{
    char line[line_size];
    while (fgets(line, sizeof line, in))
        if (parse(line, entry) && is_left_over(entry, pid))
            return true;
    return false;
}

// Removes what the note `in` names. False when something could not be removed: the note is then kept for the
// next start.
static bool remove_left_overs(FILE *in, const char *pid)
{
    bool good = true;
    entry_t entry;
    while (next_file(in, pid, entry)) {
        bool removed = unlink(entry.path) == 0;
        good = good && removed;
        fprintf(stderr, "note_recover: %s \"%s\", left by a delivery that did not end.\n",
                removed ? "removed" : "cannot remove", entry.path);
    }
    return good;
}

// Whether the process that wrote the note `in` of this host has ended. A lock alone does not tell: that of a
// dead process may last for a moment on a network file system, and for minutes if the whole host has died.
static bool has_ended(FILE *in, const found_note_t &found)
{
    char boot[64] = "";
    if (fgets(boot, sizeof boot, in))
        boot[strcspn(boot, "\n")] = '\0';
    const bool is_other_boot = *boot && strcmp(boot, boot_id()) != 0;
    const bool is_gone = kill(static_cast<pid_t>(strtol(found.pid, nullptr, 10)), 0) != 0 && errno == ESRCH;
    return is_other_boot || is_gone || lock_file(fileno(in));
}

// Whether nobody has seen the host of the note for a day: its daemon, which would remove what the note names,
// does not run.
static bool is_long_gone(FILE *in, const found_note_t &found)
{
    static constexpr time_t day = 24 * 60 * 60;
    char lock[sizeof dvWork_dir + sizeof found.host + 16];
    snprintf(lock, sizeof lock, "%s/trayd_lock.%s", dvWork_dir, found.host);
    const unique_fd daemon(open(lock, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat st;
    return fstat(fileno(in), &st) == 0 && st.st_mtime < time(nullptr) - day && !is_locked(fileno(in)) &&
           !(daemon && is_locked(daemon.get()));
}

// Tells of what another host has left: that is the other host's to remove.
static void report_left_overs(FILE *in, const found_note_t &found)
{
    fprintf(stderr, "note_recover: \"%s\": host %s has been away for a day.\n", found.path, found.host);
    entry_t entry;
    while (next_file(in, found.pid, entry))
        fprintf(stderr, "note_recover: kept \"%s\", left by a delivery on host %s.\n", entry.path,
                found.host);
}

void note_recover()
{
    process_tag();  // reads what all our children then have in memory
    for_each_note([](const found_note_t &found) {
        const bool is_ours = !*found.host || strcmp(found.host, host_name()) == 0;
        const file_ptr in = open_note(found.path);
        if (in && !is_ours && is_long_gone(in.get(), found))
            report_left_overs(in.get(), found);
        if (in && is_ours && has_ended(in.get(), found) && remove_left_overs(in.get(), found.pid) &&
            unlink(found.path) != 0)
            trprintf("note_recover: unlink(\"%s\") failed: %s.\n", found.path, strerror(errno));
    });
}

std::set<std::string> noted_files()
{
    std::set<std::string> files;
    for_each_note([&files](const found_note_t &found) {
        entry_t entry;
        if (const file_ptr in = open_note(found.path))
            while (next_file(in.get(), found.pid, entry))
                files.insert(entry.path);
    });
    return files;
}

bool delivery_runs()
{
    bool runs = false;
    for_each_note([&runs](const found_note_t &found) {
        const unique_fd fd(open(found.path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        runs = runs || (fd ? is_locked(fd.get()) : errno != ENOENT);
    });
    return runs;
}

}  // namespace faxtray
