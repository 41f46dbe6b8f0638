// Everything is judged on what was opened. A link is opened itself, without following it, and read through
// that descriptor, so that nobody can exchange it between the look at its maker and the step to its target.
#include "inbox/listed_file.h"

#include <fcntl.h>
#include <sys/param.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "log/access_log.h"
#include "util/access.h"

namespace faxtray {

// O_NONBLOCK: if the name is a FIFO's by now, opening it must not wait for a writer.
static constexpr int reading = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// Links

namespace {

// A path on the way from a link to the file that it leads to.
struct way_t {
    int directory;    // what the path is relative to
    unique_fd owned;  // that directory, once a link has led to it
    char path[MAXPATHLEN];
};

}  // namespace

// Goes one step from the link at `way`, whose owner is put into `maker`. False with errno if there is none,
// or its text is too long.
static bool step(way_t &way, uid_t &maker)
{
    const unique_fd link(openat(way.directory, way.path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    char text[MAXPATHLEN];
    struct stat st;
    if (!link || fstat(link.get(), &st) != 0)
        return false;
    const ssize_t n = readlinkat(link.get(), "", text, sizeof text);
    if (n < 0 || n == sizeof text)
        return false;
    maker = st.st_uid;
    // The text is relative to the directory of the link.
    if (char *slash = strrchr(way.path, '/')) {
        slash[1] = '\0';
        unique_fd directory(openat(way.directory, way.path, O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!directory)
            return false;
        way.directory = directory.get();
        way.owned = std::move(directory);
    }
    memcpy(way.path, text, static_cast<size_t>(n));
    way.path[n] = '\0';
    return true;
}

// The file to which the link at `way` leads, if every link on the way counts. Links in the directories of the
// way are followed as they are: whoever made the link wanted that way.
static unique_fd follow(way_t &way)
{
    uid_t makers[40];  // as many links as the kernel follows
    for (size_t n = 0; n < std::size(makers); n++) {
        if (!step(way, makers[n]))
            return {};
        unique_fd fd(openat(way.directory, way.path, reading));
        if (!fd) {
            if (errno == ELOOP)
                continue;
            return {};
        }
        struct stat st;
        if (fstat(fd.get(), &st) != 0)
            return {};
        auto counts = [&](uid_t maker) { return maker == 0 || maker == geteuid() || maker == st.st_uid; };
        if (std::all_of(makers, makers + n + 1, counts))
            return fd;
        break;
    }
    errno = ELOOP;
    return {};
}

unique_fd open_inbox_file(int directory, const char *path)
{
    unique_fd fd(openat(directory, path, reading));
    if (fd || errno != ELOOP)
        return fd;
    way_t way = {directory, unique_fd(), ""};
    if (snprintf(way.path, sizeof way.path, "%s", path) >= static_cast<int>(sizeof way.path))
        return {};
    return follow(way);
}

// Listed files

static bool is_listed_file(const fax_index_t *index, faxid_t faxid, const struct stat &st)
{
    const auto found = index->places.find(faxid);
    return found != index->places.end() && found->second.file == file_identity_t(st);
}

static bool refuse_other_file(fax_index_t *index, faxid_t faxid)
{
    drop_file_node(index, faxid);
    errno = ESTALE;
    return false;
}

unique_fd open_listed(fax_index_t *index, faxid_t faxid, const char *path)
{
    unique_fd fd = open_inbox_file(AT_FDCWD, path);
    if (!fd && errno == ELOOP)
        refuse_other_file(index, faxid);
    else if (fd && !is_as_listed(index, faxid, fd.get()))
        fd.reset();
    return fd;
}

bool is_as_listed(fax_index_t *index, faxid_t faxid, int fd)
{
    struct stat st;
    if (fstat(fd, &st) != 0)
        return false;
    return is_listed_file(index, faxid, st) || refuse_other_file(index, faxid);
}

bool is_there_as_listed(fax_index_t *index, faxid_t faxid, const char *path)
{
    struct stat st;
    if (stat(path, &st) == 0 && check_access_stat(st, S_IFREG, "r") && is_listed_file(index, faxid, st))
        return true;
    return refuse_other_file(index, faxid);
}

// Linux has no call that removes a name only while it denotes a given file, so nothing lies between the look
// at the file and its removal; a file that is moved there in those microseconds is lost. Renaming the file
// aside and looking at it there would leave no such gap, but a crash would leave a fax, perhaps the wrong
// one, under a name by which nobody looks for it.
static bool unlink_listed(fax_index_t *index, faxid_t faxid, const char *path)
{
    struct stat st;
    if (stat(path, &st) == 0) {
        if (!is_listed_file(index, faxid, st))
            return refuse_other_file(index, faxid);
        if (unlink(path) == 0) {
            free_file_node(delete_file_node(index, faxid));
            return true;
        }
    }
    const int error = errno;
    drop_file_node(index, faxid);
    errno = error;
    return false;
}

bool remove_listed(fax_index_t *index, faxid_t faxid, const char *path)
{
    const bool removed = unlink_listed(index, faxid, path);
    access_removal(path, faxid, removed ? 0 : errno);
    return removed;
}

}  // namespace faxtray
