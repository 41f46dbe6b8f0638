// States on disk: in place, what t4dec_change_format() leaves; else a temporary file ".faxconv-XXXXXX"
// beside the target, then the target, whole.
#include "tools/recode.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "client/output.h"
#include "codec/change_format.h"
#include "tools/fax_pages.h"
#include "util/files.h"

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

// Whether the file can be read as a fax at all; warns of what its re-coding costs.
static bool look_before(const std::string &path, int df)
{
    fax_pages_t fax;
    if (!open_fax_pages(path, &fax))
        return false;
    if (fax.df == 0 && df != 0 && fax.pages > 0)
        fprintf(stderr,
                "faxconv: %s: warning: coded MH: every page gets a white line at its top, and its last line "
                "is lost unless an EOL follows it\n",
                printable(path).c_str());
    return true;
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
    if (!look_before(path, df))
        return false;
    // The file itself, not a link to it, is replaced.
    const c_string file(realpath(path.c_str(), nullptr));
    struct stat status;
    if (!file || stat(file.get(), &status) < 0)
        return complain(path, "can't read");
    signals_held hold;
    if (!recode(file.get(), df, status.st_mode & 07777))
        return false;
    // Root re-codes the faxes of others, who keep them.
    return geteuid() != 0 || chown(file.get(), status.st_uid, status.st_gid) == 0 ||
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
    if (!look_before(path, df))
        return false;
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
