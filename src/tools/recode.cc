// States on disk: in place, what t4dec_change_format() leaves; else a temporary file ".faxconv-XXXXXX"
// beside the target, then the target, whole.
#include "tools/recode.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "codec/change_format.h"
#include "disk/files.h"
#include "faxfile/fax_header.h"
#include "tools/fax_pages.h"
#include "util/command_output.h"

namespace faxtray {

namespace {

// While it lives, what would end the program waits, so that no half-made file stays behind.
class signals_held {
public:
    signals_held()
    {
        sigset_t held;
        sigemptyset(&held);
        for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
            sigaddset(&held, signal);
        sigprocmask(SIG_BLOCK, &held, &before_);
    }
    ~signals_held() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

}  // namespace

static bool complain(const std::string &path, const char *what, const char *why = strerror(errno))
{
    fprintf(stderr, "faxconv: %s: %s: %s\n", printable(path).c_str(), what, why);
    return false;
}

// Tells what re-coding an MH file costs; nothing when it is none, or no fax at all.
static void warn_of_MH(const std::string &path, int df)
{
    char head[16384];
    const char *const names[] = {"COMPRESSION"};
    const char *compression;
    const unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));  // a pipe must not hold us up
    const ssize_t n = fd && df != 0 ? read(fd.get(), head, sizeof head) : -1;
    if (n > 0 && find_fax_header_values(head, static_cast<size_t>(n), names, &compression, 1) &&
        (!compression || *compression == '0'))
        fprintf(stderr,
                "faxconv: %s: warning: coded MH: every page gets a white line at its top, and its last line "
                "is lost unless an EOL follows it\n",
                printable(path).c_str());
}

// Re-codes `path`, never more open to others meanwhile than `mode`, which it has in the end.
static bool recode(const std::string &path, int df, mode_t mode)
{
    const mode_t mask = umask(0777 & ~mode);
    const bool done = t4dec_change_format(path.c_str(), df, 0, nullptr) == 1;
    umask(mask);
    return done && (chmod(path.c_str(), mode) == 0 || complain(path, "can't set the mode"));
}

bool recode_in_place(const std::string &path, int df)
{
    warn_of_MH(path, df);
    struct stat status;
    std::string file = path;
    if (lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode))  // the file itself is replaced
        if (const c_string target(realpath(path.c_str(), nullptr)); target)
            file = target.get();
    if (stat(file.c_str(), &status) < 0)
        status = {};  // t4dec_change_format tells why
    signals_held hold;
    if (!recode(file, df, status.st_mode & 07777))
        return false;
    // Root re-codes the faxes of others, who keep them.
    return geteuid() != 0 || chown(file.c_str(), status.st_uid, status.st_gid) == 0 ||
           complain(path, "can't set the owner");
}

static bool sync_file(const std::string &path)
{
    unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return fd && fsync(fd.get()) == 0;
}

bool recode_to(const std::string &path, const std::string &to, int df)
{
    struct stat status;
    fax_pages_t fax;
    if (!open_fax_pages(path, &fax))
        return false;
    warn_of_MH(path, df);
    if (lstat(to.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        return complain(to, "can't replace", "it is no regular file");
    if (stat(path.c_str(), &status) < 0)
        return complain(path, "can't read");

    signals_held hold;
    const size_t slash = to.rfind('/');
    std::string temporary = to.substr(0, slash == std::string::npos ? 0 : slash + 1) + ".faxconv-XXXXXX";
    if (!unique_fd(mkostemp(temporary.data(), O_CLOEXEC)))
        return complain(to, "can't create a file beside it");
    const bool done =
        (copy(path.c_str(), temporary.c_str()) || complain(to, "can't copy the fax beside it")) &&
        recode(temporary, df, status.st_mode & 0777) &&
        (sync_file(temporary) || complain(to, "can't write")) &&
        (rename(temporary.c_str(), to.c_str()) == 0 || complain(to, "can't create"));
    if (!done)
        unlink(temporary.c_str());
    return done;
}

}  // namespace faxtray
