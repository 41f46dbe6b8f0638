// States on disk: the directory ".faxtray-XXXXXX" with the files; then the files under their names, put there
// one after another. A crash in between leaves the directory, which nobody reads.
#include "disk/staged_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "disk/files.h"
#include "disk/flush.h"
#include "disk/whole_file.h"
#include "util/command_output.h"

namespace faxtray {

// Returns false, so that a caller can return its result.
static bool complain(const char *what, const std::string &path)
{
    const int error = errno;
    fprintf(stderr, "%s: can't %s %s: %s\n", program_invocation_short_name, what, printable(path).c_str(),
            strerror(error));
    return false;
}

// By the directory's descriptor: whoever may write to the directory above could put a link in its place.
std::string staged_files::staged(const std::string &name) const
{
    return "/proc/self/fd/" + std::to_string(staging_fd_.get()) + "/" + name;
}

bool staged_files::begin(const std::string &directory, bool replace)
{
    replace_ = replace;
    directory_ = directory.empty() ? "" : directory + "/";
    std::string path = directory_ + ".faxtray-XXXXXX";
    if (!mkdtemp(path.data()))
        return complain("create a temporary directory in", directory_ + ".");
    staging_ = path;
    staging_fd_.reset(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    return (staging_fd_ && fstat(staging_fd_.get(), &status) == 0 && status.st_uid == geteuid()) ||
           complain("use", staging_);
}

unique_fd staged_files::add(const std::string &name)
{
    if (!may_become_output(directory_ + name, replace_))
        return {};
    unique_fd fd(open(staged(name).c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (fd)
        names_.push_back(name);
    else
        complain("create", staging_ + name);
    return fd;
}

// Gives the files their names. If that fails, takes those back that have replaced nothing.
bool staged_files::name_all()
{
    for (size_t i = 0; i < names_.size(); i++) {
        const std::string from = staged(names_[i]), to = directory_ + names_[i];
        if ((replace_ ? rename : rename_new)(from.c_str(), to.c_str()) == 0)
            continue;
        complain("create", to);
        while (!replace_ && i-- > 0)
            unlink((directory_ + names_[i]).c_str());
        return false;
    }
    return true;
}

bool staged_files::keep()
{
    // The bytes of all of them first: the disk is then asked for many at a time.
    for (const std::string &name : names_) {
        unique_fd fd(open(staged(name).c_str(), O_RDONLY | O_CLOEXEC));
        if (!fd || !close_flushed(std::move(fd)))
            return complain("write", directory_ + name);
    }
    if (!name_all())
        return false;
    return sync_directory_of((directory_ + ".").c_str()) || complain("write to", directory_ + ".");
}

staged_files::~staged_files()
{
    if (staging_.empty())
        return;
    for (const std::string &name : names_)
        unlink(staged(name).c_str());
    rmdir(staging_.c_str());
}

}  // namespace faxtray
