// One document at a time is on its way. It is moved, never copied, and a fax gets its name by one rename, so
// that names alone say how far things have come, whenever the process is killed:
//
//   DIR/NAME                          a document, waiting
//   DIR/.import/NAME                  taken: nobody else touches it any more
//   DIR/.import/.made -> INCOMING/ii_F    the fax is being made there, and is worth nothing yet
//   DIR/.import/.whole -> INCOMING/ii_F   it is whole and on the disk. If there is no ii_F, it has been
//                                     published: it was renamed, and may have been read and removed since
//   DIR/done/NAME, DIR/failed/NAME    imported; refused, with the reason in NAME.why
//
// Each of these is on the disk before the next is begun. recover() goes on from any of them.
#include "tools/watch.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <set>

#include "disk/files.h"
#include "disk/flush.h"
#include "disk/lease.h"
#include "util/command_output.h"
#include "util/io.h"

namespace faxtray {

static constexpr int look_seconds = 60;   // at most between two looks at the directory
static constexpr int still_seconds = 60;  // that a file must not have changed for, if nothing else says that
                                          // it is finished

namespace {

class watch_t {
public:
    watch_t(const import_job_t &job, const std::string &directory) : job_(job), directory_(directory) {}
    bool begin();
    void run();

private:
    enum outcome_t { DONE, LATER };  // LATER: not the document's fault, so it stays where it is

    bool has_destination(const struct stat &watched);
    bool make_directory(const char *name, mode_t mode);
    outcome_t recover();
    outcome_t look();
    std::vector<std::string> waiting();
    bool is_finished(const std::string &name, unique_fd *leased);
    outcome_t take(const std::string &name);
    outcome_t import(const std::string &name);
    outcome_t make(const std::string &name, staged_fax *fax, reason_t *why);
    outcome_t publish(const std::string &name, const std::string &staged);
    std::string free_path(const std::string &name, const char *where) const;
    outcome_t put_away(const std::string &name, const std::string &path);
    outcome_t refuse(const std::string &name, const std::string &why);
    outcome_t later(const std::string &what, const std::string &why);
    void wait();

    std::string at(const std::string &name) const { return directory_ + "/" + name; }
    std::string taken(const std::string &name) const { return directory_ + "/.import/" + name; }

    import_job_t job_;
    const std::string directory_;
    const ending_signals_held signals_;
    unique_fd lock_, events_, ending_;
    std::set<std::string> closed_;  // files that a writer has closed or moved here, since the last look
    std::string complaint_;         // the last one, which is not repeated every minute
};

}  // namespace

static bool complain(const std::string &what, const std::string &why)
{
    fprintf(stderr, "faxtray-import: %s: %s\n", printable(what).c_str(), printable(why).c_str());
    return false;
}

watch_t::outcome_t watch_t::later(const std::string &what, const std::string &why)
{
    if (!signals_.one_came() && complaint_ != what + why)
        complain(what, why + "; it is tried again");
    complaint_ = what + why;
    return LATER;
}

// Start

bool watch_t::make_directory(const char *name, mode_t mode)
{
    if (mkdir(at(name).c_str(), 0700) == 0)
        return chmod(at(name).c_str(), mode) == 0 || complain(at(name), strerror(errno));
    return errno == EEXIST || complain(at(name), strerror(errno));
}

// What is put into the directory that is watched would be imported again. The path of the other one is kept
// in links, and has to mean the same at the next start.
bool watch_t::has_destination(const struct stat &watched)
{
    incoming_t incoming;
    if (!destination_of(job_, &incoming))
        return false;
    const c_string path(realpath(incoming.directory.c_str(), nullptr));
    struct stat st;
    if (!path || stat(path.get(), &st) != 0)
        return complain(incoming.directory, strerror(errno));
    if (st.st_dev == watched.st_dev && st.st_ino == watched.st_ino)
        return complain(directory_, "the faxes must go to another directory");
    if (!job_.into.empty())
        job_.into = path.get();
    return true;
}

// The lock is the directory's own, so that nothing is left of it when we are killed.
bool watch_t::begin()
{
    struct stat st;
    lock_.reset(open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!lock_ || fstat(lock_.get(), &st) != 0)
        return complain(directory_, strerror(errno));
    if (flock(lock_.get(), LOCK_EX | LOCK_NB) != 0)
        return complain(directory_,
                        errno == EWOULDBLOCK ? "another process is watching it" : strerror(errno));
    if (!has_destination(st))
        return false;
    const mode_t mode = st.st_mode & 0777;  // originals are read by those who could read them before
    if (!make_directory(".import", 0700) || !make_directory("done", mode) || !make_directory("failed", mode))
        return false;

    // Without events there is still a look every minute.
    events_.reset(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!events_ || inotify_add_watch(events_.get(), directory_.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO) < 0)
        complain(directory_, std::string("looked at every minute only: ") + strerror(errno));
    const sigset_t ending = ending_signals();
    ending_.reset(signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK));
    job_.opening.temporary = directory_ + "/.import";  // where recover() finds what a killed gs has left
    return ending_ || complain("signalfd", strerror(errno));
}

// Recovery

// What a link says; "" if there is none.
static std::string target_of(const std::string &link)
{
    char target[4096];
    const ssize_t n = readlink(link.c_str(), target, sizeof target);
    return n < 0 ? "" : std::string(target, static_cast<size_t>(n));
}

// The names in a directory, "." and ".." left out.
static std::vector<std::string> names_in(const std::string &directory)
{
    std::vector<std::string> names;
    const dir_ptr stream(opendir(directory.c_str()));
    while (const dirent *entry = stream ? readdir(stream.get()) : nullptr)
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
    return names;
}

// Brings to its end what was begun, by a process that was killed or before something was in the way.
watch_t::outcome_t watch_t::recover()
{
    const std::string whole = target_of(taken(".whole")), made = target_of(taken(".made"));
    if (!made.empty() && unlink(made.c_str()) != 0 && errno != ENOENT)
        return later(made, strerror(errno));
    unlink(taken(".made").c_str());
    for (const std::string &name : names_in(directory_ + "/.import")) {
        std::error_code ignored;
        outcome_t outcome = DONE;
        if (name[0] != '.')
            outcome = whole.empty() ? import(name) : publish(name, whole);
        else if (name.starts_with(scratch_prefix))  // left by a process that was killed
            std::filesystem::remove_all(taken(name), ignored);
        if (outcome != DONE)
            return outcome;
    }
    unlink(taken(".whole").c_str());
    return DONE;
}

// Documents

static bool is_older(const struct stat &a, const struct stat &b)
{
    return a.st_mtim.tv_sec != b.st_mtim.tv_sec ? a.st_mtim.tv_sec < b.st_mtim.tv_sec
                                                : a.st_mtim.tv_nsec < b.st_mtim.tv_nsec;
}

// The regular files that lie there, the oldest first. Names that begin with a dot are those of files that
// somebody is still writing, or ours.
std::vector<std::string> watch_t::waiting()
{
    std::vector<std::pair<struct stat, std::string>> found;
    struct stat st;
    for (const std::string &name : names_in(directory_))
        if (name[0] != '.' && lstat(at(name).c_str(), &st) == 0 && S_ISREG(st.st_mode))
            found.emplace_back(st, name);
    std::sort(found.begin(), found.end(), [](const auto &a, const auto &b) {
        return is_older(a.first, b.first) || (!is_older(b.first, a.first) && a.second < b.second);
    });
    std::vector<std::string> names;
    for (auto &[status, name] : found)
        names.push_back(std::move(name));
    return names;
}

// Whether nobody writes the file any more. If that is known from a lease, `leased` holds it: nobody can begin
// to. An empty file may have been made by who is about to write it.
bool watch_t::is_finished(const std::string &name, unique_fd *leased)
{
    leased->reset(open(at(name).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat st;
    if (!*leased || fstat(leased->get(), &st) != 0)
        return false;
    const bool still = time(nullptr) - std::max(st.st_mtime, st.st_ctime) >= still_seconds;
    const int lease = take_read_lease(leased->get());
    if (lease == EBUSY || (st.st_size == 0 && !still))
        return false;
    return lease == 0 || still || closed_.count(name);
}

watch_t::outcome_t watch_t::take(const std::string &name)
{
    unique_fd leased;
    if (!is_finished(name, &leased))
        return DONE;
    if (rename_new(at(name).c_str(), taken(name).c_str()) != 0)
        return errno == ENOENT ? DONE : later(at(name), strerror(errno));
    leased.reset();
    return import(name);
}

// Makes the fax, up to the state ".whole", from where on `fax` is kept. DONE with a reason in `why`: refused.
watch_t::outcome_t watch_t::make(const std::string &name, staged_fax *fax, reason_t *why)
{
    incoming_t incoming;
    const std::string made = taken(".made"), whole = taken(".whole");
    if (!destination_of(job_, &incoming))
        return LATER;
    unique_fd fd(open(taken(name).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    struct stat before, after;
    if (!fd || fstat(fd.get(), &before) != 0)
        return later(taken(name), strerror(errno));
    fax->choose_name(incoming, job_.problem);
    if (symlink(fax->path().c_str(), made.c_str()) != 0 || !sync_directory_of(made.c_str()) || !fax->create())
        return later(incoming.directory, strerror(errno));

    long pages;
    if (!make_fax_of(job_, std::move(fd), fax->fd(), signals_, &pages, why))
        return why->is_ours ? later(name, why->text) : DONE;
    if (stat(taken(name).c_str(), &after) != 0 || is_older(before, after) || before.st_size != after.st_size)
        return later(name, "somebody has changed it meanwhile");
    if (!fax->finish() || rename(made.c_str(), whole.c_str()) != 0)
        return later(incoming.directory, strerror(errno));
    fax->keep();
    return sync_directory_of(whole.c_str()) ? DONE : later(whole, strerror(errno));
}

// Imports the document that has been taken.
watch_t::outcome_t watch_t::import(const std::string &name)
{
    reason_t why;
    outcome_t outcome;
    {
        staged_fax fax;
        outcome = make(name, &fax, &why);
    }
    if (outcome == DONE && why.text.empty())
        return publish(name, target_of(taken(".whole")));
    unlink(taken(".made").c_str());  // after the file it names
    return outcome == DONE ? refuse(name, why.text) : LATER;
}

// Publishes the whole fax, unless that was done before.
watch_t::outcome_t watch_t::publish(const std::string &name, const std::string &staged)
{
    struct stat st;
    const bool waits = lstat(staged.c_str(), &st) == 0;
    if (!waits && errno != ENOENT)
        return later(staged, strerror(errno));
    const std::string published = waits ? publish_staged(staged) : "published before";
    if (published.empty())
        return later(staged, strerror(errno));
    const outcome_t outcome = put_away(name, free_path(name, "done"));
    if (outcome != DONE)
        return outcome;
    unlink(taken(".whole").c_str());
    printf("%s: %s\n", printable(name).c_str(), printable(published).c_str());
    fflush(stdout);
    return DONE;
}

// Where the document can go in "done" or "failed": under its name or the next one that is free.
std::string watch_t::free_path(const std::string &name, const char *where) const
{
    const std::string wanted = at(where) + "/" + name;
    std::string path = wanted;
    struct stat st;
    for (int n = 2; lstat(path.c_str(), &st) == 0 || lstat((path + ".why").c_str(), &st) == 0; n++)
        path = wanted + "." + std::to_string(n);
    return path;
}

// Moves a document that has been taken.
watch_t::outcome_t watch_t::put_away(const std::string &name, const std::string &path)
{
    if (rename_new(taken(name).c_str(), path.c_str()) != 0 || !sync_directory_of(path.c_str()) ||
        !sync_directory_of(taken(name).c_str()))
        return later(path, strerror(errno));
    complaint_.clear();
    return DONE;
}

watch_t::outcome_t watch_t::refuse(const std::string &name, const std::string &why)
{
    complain(name, why);
    const std::string path = free_path(name, "failed"), text = printable(why) + "\n";
    unique_fd fd(open((path + ".why").c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!fd || !write_full(fd.get(), text.data(), text.size()) || !close_flushed(std::move(fd)))
        return later(path + ".why", strerror(errno));
    return put_away(name, path);
}

// The loop

watch_t::outcome_t watch_t::look()
{
    for (const std::string &name : waiting())
        if (signals_.one_came() || take(name) == LATER)
            return LATER;
    return DONE;
}

// Until something happens in the directory, a signal comes, or a minute is over.
void watch_t::wait()
{
    struct pollfd awaited[] = {{events_.get(), POLLIN, 0}, {ending_.get(), POLLIN, 0}};
    poll(awaited, std::size(awaited), look_seconds * 1000);
    alignas(inotify_event) char events[8192];
    ssize_t n;
    while ((n = read(events_.get(), events, sizeof events)) > 0)
        for (ssize_t i = 0; i < n;) {
            const auto *event = reinterpret_cast<const inotify_event *>(events + i);
            if (event->len > 0)
                closed_.insert(event->name);
            i += static_cast<ssize_t>(sizeof *event + event->len);
        }
}

void watch_t::run()
{
    while (!signals_.one_came()) {
        if (recover() == DONE)
            look();
        closed_.clear();
        wait();
    }
    // The signal has done its work.
    const sigset_t ending = ending_signals();
    for (int signal = 1; signal <= SIGRTMAX; signal++)
        if (sigismember(&ending, signal) == 1)
            ::signal(signal, SIG_IGN);
}

bool watch(const import_job_t &job, const std::string &directory)
{
    watch_t watched(job, directory);
    if (!watched.begin())
        return false;
    watched.run();
    return true;
}

}  // namespace faxtray
