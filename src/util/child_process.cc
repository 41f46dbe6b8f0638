// popen(3) and system(3) would pass on the daemon's sockets and its lowered descriptor limit, and wait for a
// child that the daemon's reaper may have taken.
#include "util/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "util/owned.h"
#include "util/time_limit.h"

namespace faxtray {

namespace {

// A stream of child_popen and the child at its other end.
struct stream_child {
    FILE *stream;
    pid_t pid;
    std::string command;  // for messages
};

}  // namespace

static std::vector<stream_child> open_streams;
static bool sigpipe_off;  // whether this module ignores SIGPIPE for the process, to restore its default later
static int awaited;       // children, since child_awaited() was last called

static constexpr int longest_shown = 400;  // characters of a command in a message

static struct rlimit child_limit;  // what commands get
static bool child_limit_known;

void child_set_limit(const struct rlimit &nofile)
{
    child_limit = nofile;
    child_limit_known = true;
}

int child_awaited()
{
    return std::exchange(awaited, 0);
}

bool child_await(pid_t pid, int *status)
{
    pid_t got;
    do
        got = waitpid(pid, status, 0);
    while (got < 0 && errno == EINTR);
    awaited += got == pid;
    return got == pid;
}

// In the child, between fork and exec: async-signal-safe calls only, as for the daemon's own start

// The decimal number `text`; -1 for any other text, such as "..".
static int descriptor_number(const char *text)
{
    int fd = *text ? 0 : -1;
    for (; *text && fd >= 0; text++)
        fd = *text >= '0' && *text <= '9' ? fd * 10 + (*text - '0') : -1;
    return fd;
}

// Closes the descriptors that /proc/self/fd lists from `lowest` on, for kernels and sandboxes without
// close_range(2). Reads the directory by the bare system call, since opendir(3) allocates.
static void close_listed_from(int lowest)
{
    int dir = open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0)
        return;
    struct entry_t {  // struct linux_dirent64 of getdents(2), which no header declares
        uint64_t ino;
        int64_t off;
        unsigned short reclen;
        unsigned char type;
        char name[1];
    };
    alignas(entry_t) char entries[4096];
    for (long n; (n = syscall(SYS_getdents64, dir, entries, sizeof entries)) > 0;)
        for (long at = 0; at < n;) {
            const auto *entry = reinterpret_cast<const entry_t *>(entries + at);
            int fd = descriptor_number(entry->name);
            if (fd >= lowest && fd != dir)
                close(fd);
            at += entry->reclen;
        }
    close(dir);
}

void close_descriptors_from(int lowest)
{
    if (close_range(static_cast<unsigned>(lowest), ~0U, 0) != 0)
        close_listed_from(lowest);
}

[[noreturn]] static void run_shell(const char *command, int in, int out)
{
    // Handlers belong to the daemon, and exec keeps signals ignored that were: a command must die of SIGPIPE.
    struct sigaction normal = {};
    normal.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; signal++)
        sigaction(signal, &normal, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);

    // The ends of pipes are above the standard descriptors (above_standard), so neither dup2 closes the
    // other's.
    if (dup2(in, STDIN_FILENO) < 0 || (out >= 0 && dup2(out, STDOUT_FILENO) < 0))
        _exit(127);
    close_descriptors_from(STDERR_FILENO + 1);
    if (child_limit_known)
        setrlimit(RLIMIT_NOFILE, &child_limit);

    char name[] = "sh", option[] = "-c";
    char *const args[] = {name, option, const_cast<char *>(command), nullptr};
    execve("/bin/sh", args, environ);
    _exit(127);
}

// In the daemon

// Returns `fd` itself or, if it is a standard descriptor because that was closed, a close-on-exec duplicate
// above those.
static unique_fd above_standard(unique_fd fd)
{
    if (!fd || fd.get() > STDERR_FILENO)
        return fd;
    return unique_fd(fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

// Starts the command with `in` as descriptor 0 and, unless it is -1, `out` as descriptor 1; `input` is our
// own end of `in`, or -1. Its pid, or -1 with errno.
static pid_t start(const char *command, int in, int out, int input)
{
    if (!has_room_for_command()) {
        errno = EAGAIN;
        return -1;
    }
    // What is still buffered would be printed after the command's own output.
    fflush(stdout);
    fflush(stderr);
    // All signals wait until the child has reset the dispositions: until then a signal would run the daemon's
    // handlers in it.
    sigset_t all, old;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &old);
    pid_t pid = fork();
    if (pid == 0) {
        setpgid(0, 0);
        run_shell(command, in, out);
    }
    int error = errno;
    if (pid > 0) {
        setpgid(pid, pid);  // in both, since either may be first; too late is too late for one only
        begin_time_limit(pid, input);
    }
    sigprocmask(SIG_SETMASK, &old, nullptr);
    errno = error;
    return pid;
}

// Waits for that child to end, by whatever signals interrupted. Its wait status, or -1 with errno: ETIMEDOUT
// if we ended it.
static int await(pid_t pid, const char *command)
{
    int status = -1;
    int error = child_await(pid, &status) ? 0 : errno;
    if (end_time_limit(pid)) {
        fprintf(stderr, "Trayd: Ended a command that took longer than %u s: [%.*s]\n", command_seconds(),
                longest_shown, command);
        error = ETIMEDOUT;
    }
    errno = error;
    return error == 0 ? status : -1;
}

// Makes room for one more stream, and copies its command, before its child is started: afterwards nothing may
// fail. False with errno.
static bool make_room(const char *command, std::string &copy)
{
    try {
        open_streams.reserve(open_streams.size() + 1);
        copy = command;
        return true;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return false;
    }
}

// Ignores SIGPIPE, if it would end the process, or restores that. A handler of the program's own is left
// alone.
static void switch_sigpipe(bool off)
{
    struct sigaction action = {};
    if (off == sigpipe_off || sigaction(SIGPIPE, nullptr, &action) != 0 ||
        action.sa_handler != (off ? SIG_DFL : SIG_IGN))
        return;
    action.sa_handler = off ? SIG_IGN : SIG_DFL;
    sigpipe_off = sigaction(SIGPIPE, &action, nullptr) == 0 && off;
}

FILE *child_popen(const char *command, const char *mode)
{
    bool reading = mode && strcmp(mode, "r") == 0;
    if (!command || (!reading && (!mode || strcmp(mode, "w") != 0))) {
        errno = EINVAL;
        return nullptr;
    }
    int ends[2];
    std::string copy;
    if (!make_room(command, copy) || pipe2(ends, O_CLOEXEC) != 0)
        return nullptr;
    unique_fd from = above_standard(unique_fd(ends[0])), to = above_standard(unique_fd(ends[1]));
    unique_fd null = above_standard(unique_fd(open("/dev/null", O_RDONLY | O_CLOEXEC)));
    if (!from || !to || !null)
        return nullptr;

    // The stream first, so that the fork is the last step that may fail. The child's end is closed on return.
    unique_fd &ours = reading ? from : to;
    file_ptr stream(fdopen(ours.get(), mode));
    if (!stream)
        return nullptr;
    const int end = ours.release();
    pid_t pid = reading ? start(command, null.get(), to.get(), -1) : start(command, from.get(), -1, end);
    if (pid < 0)
        return nullptr;
    open_streams.push_back({stream.get(), pid, std::move(copy)});
    switch_sigpipe(true);
    return stream.release();
}

int child_pclose(FILE *stream)
{
    for (auto it = open_streams.begin(); it != open_streams.end(); ++it)
        if (it->stream == stream) {
            const stream_child child = std::move(*it);
            open_streams.erase(it);
            fclose(stream);  // before the wait: the child may read until the end of its input
            if (open_streams.empty())
                switch_sigpipe(false);
            return await(child.pid, child.command.c_str());
        }
    errno = EINVAL;
    return -1;
}

int child_system(const char *command)
{
    if (!command) {
        errno = EINVAL;
        return -1;
    }
    unique_fd null = above_standard(unique_fd(open("/dev/null", O_RDONLY | O_CLOEXEC)));
    if (!null)
        return -1;
    pid_t pid = start(command, null.get(), -1, -1);
    return pid < 0 ? -1 : await(pid, command);
}

}  // namespace faxtray
