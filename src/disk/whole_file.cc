// States on disk: a temporary file ".faxtray-XXXXXX" of mode 0600 beside the target; then the target, whole.
// A crash in between leaves the temporary file, which nobody reads.
#include "disk/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "disk/files.h"
#include "util/command_output.h"
#include "util/ending_signals.h"
#include "util/io.h"

namespace faxtray {

// The file that a signal which ends the program removes; "" for none. A plain array, because a signal handler
// must not touch a std::string that the program may be changing.
static char doomed[PATH_MAX];

// Removes the file, then lets the signal do what it would have done: the shell sees the program killed by it.
static void remove_and_end(int signal)
{
    if (doomed[0])
        unlink(doomed);
    ::signal(signal, SIG_DFL);
    raise(signal);
}

// Has `path` removed by the signals that would end the program, which are held back meanwhile. False when it
// is too long.
static bool doom(const std::string &path)
{
    if (path.size() >= sizeof doomed)
        return false;
    const sigset_t ending = ending_signals();
    struct sigaction action = {}, now;
    action.sa_handler = remove_and_end;
    for (int signal = 1; signal <= SIGRTMAX; signal++)
        if (sigismember(&ending, signal) && sigaction(signal, nullptr, &now) == 0 &&
            now.sa_handler == SIG_DFL)
            sigaction(signal, &action, nullptr);
    memcpy(doomed, path.c_str(), path.size() + 1);
    return true;
}

static std::string directory_of(const std::string &path)
{
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// Why no file of that name may be written; "" if one may.
static std::string refusal(const std::string &target, bool replace)
{
    struct stat status;
    if (lstat(target.c_str(), &status) != 0)
        return errno == ENOENT ? "" : std::string("can't be used: ") + strerror(errno);
    if (!replace)
        return "exists: choose another name with -o, or --force";
    return S_ISREG(status.st_mode) ? "" : "exists and is no regular file";
}

bool may_become_output(const std::string &target, bool replace)
{
    const std::string why = refusal(target, replace);
    if (!why.empty())
        fprintf(stderr, "%s: %s %s\n", program_invocation_short_name, printable(target).c_str(), why.c_str());
    return why.empty();
}

bool whole_file::complain(const char *what) const
{
    if (kind_ == CACHE)
        return false;
    const int error = errno;
    fprintf(stderr, "%s: can't %s %s: %s\n", program_invocation_short_name, what, printable(target_).c_str(),
            strerror(error));
    return false;
}

bool whole_file::begin(const std::string &target, bool replace)
{
    target_ = target;
    replace_ = replace;
    if (target == "-") {
        fd_.reset(dup(STDOUT_FILENO));
        return fd_ || complain("write to");
    }
    // Refused now, not after all the work; keep() looks again, by the rename.
    if (kind_ == OUTPUT ? !may_become_output(target, replace) : !refusal(target, replace).empty())
        return false;
    // A signal in between would leave a file of which nobody knows.
    const ending_signals_held until_doomed;
    std::string path = directory_of(target) + "/.faxtray-XXXXXX";
    fd_.reset(mkostemp(path.data(), O_CLOEXEC));
    if (!fd_)
        return complain("create a temporary file beside");
    temporary_ = path;
    if (!doom(temporary_)) {
        errno = ENAMETOOLONG;
        return complain("use");
    }
    return true;
}

bool whole_file::write(const char *bytes, size_t n)
{
    return write_full(fd_.get(), bytes, n) || complain("write to");
}

bool whole_file::keep()
{
    if (temporary_.empty())  // standard output
        return close(fd_.release()) == 0 || complain("write to");
    // mkostemp() made it readable by us alone, while it was incomplete; now the umask decides.
    const mode_t mask = umask(0);
    umask(mask);
    if (kind_ != CACHE && fchmod(fd_.get(), 0666 & ~mask) < 0)
        return complain("write to");
    if (!put_in_place(std::move(fd_), temporary_.c_str(), target_.c_str(), replace_))
        return complain("create");
    doomed[0] = '\0';
    temporary_.clear();
    return true;
}

whole_file::~whole_file()
{
    if (!temporary_.empty()) {
        unlink(temporary_.c_str());
        doomed[0] = '\0';
    }
}

}  // namespace faxtray
