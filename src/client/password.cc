// The terminal is the delicate part: a signal between switching the echo off and on again would leave the
// user typing blind. So the signals that end a program are held back, and let in only where the program waits
// for a key.
#include "client/password.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "util/owned.h"
#include "util/short_hash.h"

namespace faxtray {

static constexpr size_t longest_password = 4096;  // passwd() refuses longer ones

// Reads one line, without its end, a byte at a time: what follows it is somebody else's input. False with
// errno if reading fails or a signal arrives. `waiting`, or null, is the signal mask while waiting for input.
static bool read_line(int fd, std::string *line, const sigset_t *waiting = nullptr)
{
    line->clear();
    char c;
    ssize_t n;
    do {
        pollfd input = {fd, POLLIN, 0};
        if (waiting && ppoll(&input, 1, nullptr, waiting) < 0)
            return false;
        n = read(fd, &c, 1);
        if (n == 1 && c != '\n')
            line->push_back(c);
    } while (n == 1 && c != '\n' && line->size() <= longest_password);
    if (!line->empty() && line->back() == '\r')
        line->pop_back();
    return n >= 0;
}

bool read_password_file(const std::string &path, std::string *password)
{
    unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd || !read_line(fd.get(), password)) {
        fprintf(stderr, "faxtray: can't read password file %s: %s\n", path.c_str(), strerror(errno));
        return false;
    }
    // Only a warning: the file may be in a directory that keeps others out.
    struct stat status;
    if (fstat(fd.get(), &status) == 0 && S_ISREG(status.st_mode) && (status.st_mode & (S_IRGRP | S_IROTH)))
        fprintf(stderr, "faxtray: warning: others may read the password file: chmod 600 %s\n", path.c_str());
    return true;
}

bool have_terminal()
{
    return static_cast<bool>(unique_fd(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)));
}

static volatile sig_atomic_t interrupted_by;

static void interrupt(int signal)
{
    interrupted_by = signal;
}

namespace {

// Holds back the signals that end a program: they arrive only under the mask while_waiting(). When this is
// destroyed, a signal that arrived is raised again under its former handler, and usually ends the program.
class interrupts_deferred {
public:
    interrupts_deferred()
    {
        // Handlers without SA_RESTART, so that a signal also ends the wait for input.
        interrupted_by = 0;
        sigset_t held;
        sigemptyset(&held);
        struct sigaction action = {};
        action.sa_handler = interrupt;
        for (size_t i = 0; i < std::size(signals); i++) {
            sigaddset(&held, signals[i]);
            sigaction(signals[i], &action, &before_[i]);
        }
        sigprocmask(SIG_BLOCK, &held, &mask_before_);
    }
    ~interrupts_deferred()
    {
        for (size_t i = 0; i < std::size(signals); i++)
            sigaction(signals[i], &before_[i], nullptr);
        if (interrupted_by)
            raise(interrupted_by);
        sigprocmask(SIG_SETMASK, &mask_before_, nullptr);  // the signal raised above takes effect here
    }
    const sigset_t *while_waiting() const { return &mask_before_; }

private:
    static constexpr int signals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
    struct sigaction before_[std::size(signals)];
    sigset_t mask_before_;
};

}  // namespace

bool ask_password(const std::string &prompt, std::string *password)
{
    unique_fd tty(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
    // The terminal itself, not standard input: that may be a pipe with something else in it.
    termios before;
    if (!tty || tcgetattr(tty.get(), &before) < 0) {
        fprintf(stderr, "faxtray: no terminal to ask for a password: %s\n", strerror(errno));
        return false;
    }
    interrupts_deferred deferred;
    termios silent = before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    silent.c_lflag |= ECHONL;  // the Return is echoed: the next output begins on a line of its own
    bool ok = tcsetattr(tty.get(), TCSAFLUSH, &silent) == 0 &&
              write(tty.get(), prompt.data(), prompt.size()) == static_cast<ssize_t>(prompt.size()) &&
              read_line(tty.get(), password, deferred.while_waiting());
    if (!ok && !interrupted_by)
        fprintf(stderr, "faxtray: can't read a password: %s\n", strerror(errno));
    tcsetattr(tty.get(), TCSAFLUSH, &before);
    return ok;
}

bool hash_password(const std::string &password, std::string *hash)
{
    const char *text = password.empty() ? "" : passwd(password.c_str());  // passwd() prints why not
    *hash = text ? text : "";
    return text != nullptr;
}

exit_status passwd_command(const std::string &password_file)
{
    // The password is typed twice only where it cannot be seen.
    std::string password, again, hash;
    if (!password_file.empty()) {
        if (!read_password_file(password_file, &password))
            return EXIT_LOCAL;
    } else {
        if (!ask_password("New password: ", &password) || !ask_password("Again: ", &again))
            return EXIT_LOCAL;
        if (password != again) {  // typed unseen: a slip would lock the user out
            fprintf(stderr, "faxtray: the passwords differ\n");
            return EXIT_USAGE;
        }
    }
    if (!hash_password(password, &hash))
        return EXIT_USAGE;
    printf("password = %s\n", hash.c_str());
    return EXIT_DONE;
}

}  // namespace faxtray
