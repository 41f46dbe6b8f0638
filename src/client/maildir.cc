// The order of what reaches the disk: the message, its name in tmp/, the id in the record, the name in new/.
#include "client/maildir.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <regex>

#include "disk/files.h"
#include "disk/flush.h"
#include "util/command_output.h"
#include "util/io.h"

namespace faxtray {

namespace fs = std::filesystem;

static constexpr char record_name[] = "faxtray-delivered";

// Returns false, so that a caller can return its result.
static bool complain_of(const std::string &path, const char *why)
{
    fprintf(stderr, "faxtray: %s: %s\n", printable(path).c_str(), why);
    return false;
}

bool maildir::complain(const std::string &name) const
{
    return complain_of(path_ + "/" + name, strerror(errno));
}

std::string maildir::in(const char *directory, const std::string &name) const
{
    return path_ + "/" + directory + "/" + name;
}

// A mistyped path shall not turn somebody's home directory into a mailbox.
bool maildir::make_directories()
{
    std::error_code error;
    const bool is_new = mkdir(path_.c_str(), 0700) == 0;
    if (!is_new && errno != EEXIST)
        return complain_of(path_, strerror(errno));
    if (!is_new && !fs::is_empty(path_, error) && !error && !fs::is_directory(in("", "new"), error))
        return complain_of(path_, "no Maildir: name one, or a new or empty directory");
    for (const char *directory : {"tmp", "new", "cur"})
        if (mkdir(in("", directory).c_str(), 0700) != 0 && errno != EEXIST)
            return complain(directory);
    return true;
}

// A kill may have cut the last line; the next one is written over it.
bool maildir::read_record()
{
    struct stat status;
    if (fstat(record_.get(), &status) != 0)
        return complain(record_name);
    std::string text(static_cast<size_t>(status.st_size), '\0');
    const ssize_t n = read_full(record_.get(), text.data(), text.size());
    if (n < 0)
        return complain(record_name);
    text.resize(static_cast<size_t>(n));
    size_t at = 0;
    for (size_t end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
        delivered_.insert(text.substr(at, end - at));
    record_end_ = static_cast<off_t>(at);
    return true;
}

// After a failure the line is written over by the next one.
bool maildir::record(const std::string &id)
{
    const std::string line = id + '\n';
    if (!write_full_at(record_.get(), line.data(), line.size(), record_end_) || fdatasync(record_.get()) != 0)
        return complain(record_name);
    record_end_ += static_cast<off_t>(line.size());
    delivered_.insert(id);
    return true;
}

// Nobody else is at work here, so what is in tmp/ under such a name was left by a crash.
bool maildir::recover()
{
    static const std::regex ours("[0-9]+\\.([0-9a-f-]{36})\\.faxtray");
    std::error_code error;
    for (fs::directory_iterator at(path_ + "/tmp", error), end; !error && at != end; at.increment(error)) {
        const std::string name = at->path().filename();
        std::smatch parts;
        if (!std::regex_match(name, parts, ours))
            continue;
        if (has(parts[1]) ? rename(in("tmp", name).c_str(), in("new", name).c_str()) != 0
                          : unlink(in("tmp", name).c_str()) != 0)
            return complain("tmp/" + name);
    }
    return !error || complain_of(path_ + "/tmp", error.message().c_str());
}

bool maildir::open(const std::string &path)
{
    path_ = path;
    if (!make_directories())
        return false;
    const std::string record = in("", record_name);
    record_.reset(::open(record.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!record_)
        return complain(record_name);
    if (flock(record_.get(), LOCK_EX | LOCK_NB) != 0)
        return errno == EWOULDBLOCK ? complain_of(path_, "another faxtray is at work there")
                                    : complain(record_name);
    // What is delivered below must not be on the disk without these names.
    return (sync_directory_of(record.c_str()) || complain(record_name)) && read_record() && recover();
}

FILE *maildir::begin(const std::string &id, time_t received)
{
    drop();
    id_ = id;
    name_ = std::to_string(received) + "." + id + ".faxtray";
    received_ = received;
    unique_fd fd = make_new(in("tmp", name_).c_str(), 0600);
    message_.reset(fd ? fdopen(fd.get(), "w") : nullptr);
    if (!message_) {
        complain("tmp/" + name_);
        return nullptr;
    }
    fd.release();
    return message_.get();
}

// IMAP servers show a file's time as that of the arrival.
bool maildir::deliver()
{
    const timespec times[2] = {{0, UTIME_NOW}, {received_, 0}};
    const std::string from = in("tmp", name_), to = in("new", name_);
    unique_fd fd(dup(fileno(message_.get())));
    const bool is_written = fclose(message_.release()) == 0;
    if (!fd || !is_written || futimens(fd.get(), times) != 0 || !close_flushed(std::move(fd)) ||
        !sync_directory_of(from.c_str()))
        return complain("tmp/" + name_);
    name_.clear();  // from here on, what the record says decides what becomes of the file, here or in the
                    // next run
    return record(id_) && (rename(from.c_str(), to.c_str()) == 0 || complain("new"));
}

void maildir::drop()
{
    message_.reset();
    if (!name_.empty())
        unlink(in("tmp", name_).c_str());
    name_.clear();
}

bool maildir::finish()
{
    return sync_directory_of(in("new", "message").c_str()) || complain("new");
}

}  // namespace faxtray
