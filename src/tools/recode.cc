// States on disk: in place, those of change_format; otherwise a temporary file ".faxconv-XXXXXX" beside the
// target, then the target, whole.
#include "tools/recode.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "codec/change_format.h"
#include "disk/files.h"
#include "disk/scratch_file.h"
#include "faxfile/fax_header.h"
#include "faxfile/fax_params.h"
#include "tools/fax_pages.h"
#include "util/command_output.h"
#include "util/io.h"

namespace faxtray {

namespace {

// Defers the signals that would end the program while it exists, so that no half-made file is left.
class interruptions_deferred {
public:
    interruptions_deferred()
    {
        sigset_t held;
        sigemptyset(&held);
        for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
            sigaddset(&held, signal);
        sigprocmask(SIG_BLOCK, &held, &before_);
    }
    ~interruptions_deferred() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

}  // namespace

// Returns false, so that a caller can return its result.
static bool complain(const std::string &path, const char *what, const char *why = strerror(errno))
{
    fprintf(stderr, "faxconv: %s: %s: %s\n", printable(path).c_str(), what, why);
    return false;
}

// Warns of what re-coding an MH file costs. Prints nothing if it is another fax, or none.
static void warn_of_MH(const std::string &path, int df)
{
    char head[16384];  // every header but one made to be long; without the whole header there is no warning
    const char *const names[] = {"COMPRESSION"};
    const char *compression;
    const unique_fd fd(
        open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));  // opening a pipe must not block
    const ssize_t n = fd && df != DF_MH ? read_full(fd.get(), head, sizeof head) : -1;
    if (n > 0 && find_fax_header_values(head, static_cast<size_t>(n), names, &compression, 1) &&
        (!compression || *compression == '0'))
        fprintf(stderr,
                "faxconv: %s: warning: coded MH: every page gets a white line at its top, and its last line "
                "is lost unless an EOL follows it\n",
                printable(path).c_str());
}

// Re-codes `path` and sets its mode to `mode`. Meanwhile the new file is never more open to others than that.
static bool recode(const std::string &path, int df, mode_t mode)
{
    // t4dec_change_format creates the new file with mode 0644 less the umask.
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
        status = {};  // t4dec_change_format reports why
    const interruptions_deferred until_done;
    if (!recode(file, df, status.st_mode & 07777))
        return false;
    // Root re-codes faxes that belong to others; they must be able to read them afterwards.
    return geteuid() != 0 || chown(file.c_str(), status.st_uid, status.st_gid) == 0 ||
           complain(path, "can't set the owner");
}

bool recode_to(const std::string &path, const std::string &to, int df)
{
    struct stat status;
    fax_pages_t fax;
    if (!open_fax_pages(path, &fax))
        return false;
    // Renaming would replace the link or device itself, which is hardly what was meant.
    warn_of_MH(path, df);
    if (lstat(to.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        return complain(to, "can't replace", "it is no regular file");
    if (stat(path.c_str(), &status) < 0)
        return complain(path, "can't read");

    const interruptions_deferred until_done;
    // Copied first and re-coded in place there, so that FILE itself is never touched.
    const size_t slash = to.rfind('/');
    std::string beside = to.substr(0, slash == std::string::npos ? 0 : slash + 1) + ".faxconv-XXXXXX";
    if (!unique_fd(mkostemp(beside.data(), O_CLOEXEC)))
        return complain(to, "can't create a file beside it");
    scratch_file temporary(std::move(beside));
    if (!copy(path.c_str(), temporary.path()))
        return complain(to, "can't copy the fax beside it");
    if (!recode(temporary.path(), df, status.st_mode & 0777))
        return false;
    // A fax that had the coding already was only copied, so the flush is still to be done.
    unique_fd fd(open(temporary.path(), O_RDONLY | O_CLOEXEC));
    if (!fd || !put_in_place(std::move(fd), temporary.path(), to.c_str(), true))
        return complain(to, "can't create");
    temporary.keep();
    return true;
}

}  // namespace faxtray
