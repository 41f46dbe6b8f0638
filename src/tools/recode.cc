// A copy of the fax is re-coded, and then takes the place of the target: at any moment that is whole, the old
// file or the new.
//
// States on disk: the target as it was and a directory ".faxconv-XXXXXX" beside it, with the copy; then the
// target alone. Only SIGKILL and a crash leave the directory.
#include "tools/recode.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "codec/change_format.h"
#include "disk/flush.h"
#include "document/fax_pages.h"
#include "faxfile/fax_params.h"
#include "util/command_output.h"
#include "util/ending_signals.h"
#include "util/io.h"
#include "util/owned.h"
#include "util/paths.h"

namespace faxtray {

// Returns false, so that a caller can return its result.
static bool complain(const std::string &path, const char *what, const char *why = strerror(errno))
{
    fprintf(stderr, "faxconv: %s: %s: %s\n", printable(path).c_str(), what, why);
    return false;
}

// What is lost by re-coding.

static void warn(const fax_pages_t &fax, const std::string &of)
{
    fprintf(stderr, "faxconv: %s: warning: %s\n", printable(fax.path).c_str(), of.c_str());
}

static void warn_of_MH(const fax_pages_t &fax)
{
    if (fax.df == DF_MH)
        warn(fax,
             "coded MH: every page gets a white line at its top, and its last line is lost unless an EOL "
             "follows it");
}

// Warns when the file holds more than the pages that its header counts, which are all that is re-coded. True
// if nothing is lost.
static bool is_counted_whole(fax_pages_t *fax)
{
    while (fax->next <= fax->pages)
        if (!skip_fax_page(fax))
            return true;  // the file ends early, which change_format reports
    if (fax->left == 0)
        return true;
    warn(*fax, "its header counts " + std::to_string(std::max(fax->pages, 0L)) +
                   (fax->pages == 1 ? " page" : " pages") + " (#PAGES): re-coding drops the " +
                   std::to_string(fax->left) + " bytes that follow");
    return false;
}

// Re-coding.

namespace {

struct interrupted {};

}  // namespace

// The conversion under way. Global, because its callback has no context.
static const ending_signals_held *held;
static progress_bar *bar;

// Called at each page. The exception unwinds the conversion, which removes what it has made.
static void begin_page()
{
    if (held->one_came())
        throw interrupted();
    bar->add(1);
}

// Re-codes the file at `path`, a copy of `fax`. False, with a message unless a signal came.
static bool recode_copy(const fax_pages_t &fax, const char *path, int df, const ending_signals_held &signals)
{
    progress_bar pages(printable(fax.path), fax.pages, progress_bar::PAGES);
    const stdout_on_stderr no_output;  // of the decoder's messages
    held = &signals;
    bar = &pages;
    try {
        if (t4dec_change_format(path, df, 0, begin_page) == 1)
            return true;
    } catch (const interrupted &) {
        return false;
    }
    // Its messages name the copy.
    fprintf(stderr, "faxconv: %s: not re-coded\n", printable(fax.path).c_str());
    return false;
}

// Files.

namespace {

// A directory of ours for the copy. Root re-codes faxes in directories of users, who could put a link under
// any name there, also under this directory's: it is reached by its descriptor.
class work_directory {
public:
    ~work_directory()
    {
        unlinkat(fd_.get(), ".fax", 0);  // by way of copy() it would need memory
        rmdir(path_.c_str());
    }
    // False with errno.
    bool make_beside(const std::string &target)
    {
        const size_t slash = target.rfind('/');
        std::string path = target.substr(0, slash == std::string::npos ? 0 : slash + 1) + ".faxconv-XXXXXX";
        if (!mkdtemp(path.data()))
            return false;
        path_ = std::move(path);
        fd_.reset(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        struct stat status;
        return fd_ && fstat(fd_.get(), &status) == 0 && status.st_uid == geteuid();
    }
    std::string copy() const { return "/proc/self/fd/" + std::to_string(fd_.get()) + "/.fax"; }

private:
    std::string path_;
    unique_fd fd_;
};

}  // namespace

// Makes the re-coded fax beside `target`, with the permissions of the fax.
static bool make_recoded(const fax_pages_t &fax, const std::string &target, int df,
                         const ending_signals_held &signals, work_directory *work)
{
    struct stat status;
    if (!work->make_beside(target))
        return complain(target, "can't create a file beside it");
    {
        const unique_fd copy(open(work->copy().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!copy || lseek(fax.fd.get(), 0, SEEK_SET) != 0 || !copy_rest(fax.fd.get(), copy.get()) ||
            fstat(fax.fd.get(), &status) != 0 || fchmod(copy.get(), status.st_mode & 0777) != 0)
            return complain(target, "can't copy the fax beside it");
    }
    return recode_copy(fax, work->copy().c_str(), df, signals);
}

// Puts the re-coded fax at `target`. Flushing may take long, so the last look for a signal comes after it.
// False, with a message unless a signal came.
static bool put_recoded(const std::string &target, const ending_signals_held &signals,
                        const work_directory &work)
{
    // A fax that had the coding already was only copied, so the flush is still to be done.
    unique_fd fd(open(work.copy().c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd || !close_flushed(std::move(fd)))
        return complain(target, "can't create");
    if (signals.one_came())
        return false;
    return (rename(work.copy().c_str(), target.c_str()) == 0 && sync_directory_of(target.c_str())) ||
           complain(target, "can't create");
}

// Gives the re-coded fax owner and mode of the old one. Root re-codes faxes that belong to others; they must
// be able to read them afterwards.
static bool give_identity(const struct stat &old, const work_directory &work)
{
    const unique_fd fd(open(work.copy().c_str(), O_RDONLY | O_CLOEXEC));
    return fd && (geteuid() != 0 || fchown(fd.get(), old.st_uid, old.st_gid) == 0) &&
           fchmod(fd.get(), old.st_mode & 07777) == 0;  // last: fchown clears some bits
}

bool recode_in_place(const std::string &path, int df, bool force)
{
    fax_pages_t fax;
    struct stat old, now;
    // The file itself is replaced, not a link to it.
    const c_string file(realpath(path.c_str(), nullptr));
    if (!open_fax_pages(path, &fax))
        return false;
    if (fax.df == df)
        return true;
    warn_of_MH(fax);
    if (!is_counted_whole(&fax) && !force)
        return complain(path, "left as it was", "--force drops them, --to makes a file without them");

    const ending_signals_held until_done;
    work_directory work;
    if (!file || fstat(fax.fd.get(), &old) < 0)
        return complain(path, "can't find it");
    if (!make_recoded(fax, file.get(), df, until_done, &work))
        return false;
    if (!give_identity(old, work))
        return complain(path, "can't set owner and mode");
    if (lstat(file.get(), &now) != 0 || now.st_ino != old.st_ino || now.st_dev != old.st_dev)
        return complain(path, "left as it is", "it has been replaced meanwhile");
    return put_recoded(file.get(), until_done, work);
}

// The re-coded fax has no place of its own: it is made where temporary files go.
static bool recode_to_output(const fax_pages_t &fax, int df)
{
    unique_fd fd;
    {
        const ending_signals_held until_made;
        work_directory work;
        if (!make_recoded(fax, temporary_directory() + "/", df, until_made, &work))
            return false;
        fd.reset(open(work.copy().c_str(), O_RDONLY | O_CLOEXEC));
    }
    return copy_rest(fd.get(), STDOUT_FILENO) || complain("standard output", "can't write the fax");
}

bool recode_to(const std::string &path, const std::string &to, int df)
{
    fax_pages_t fax;
    struct stat status;
    if (!open_fax_pages(path, &fax))
        return false;
    if (fax.df != df) {
        warn_of_MH(fax);
        is_counted_whole(&fax);
    }
    if (to == "-")
        return recode_to_output(fax, df);
    // Renaming would replace the link or device itself, which is hardly what was meant.
    if (lstat(to.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        return complain(to, "can't replace", "it is no regular file");
    const ending_signals_held until_done;
    work_directory work;
    return make_recoded(fax, to, df, until_done, &work) && put_recoded(to, until_done, work);
}

}  // namespace faxtray
