// The file is a journal: a record "NAME\0SIZE MTIME\0" for each fax, appended. A kill in the middle of a
// record leaves a part of it at the end, which is cut off when the file is opened again. The file is replaced
// as a whole only when faxes are forgotten.
#include "client/known_faxes.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>

#include "disk/whole_file.h"
#include "util/command_output.h"
#include "util/io.h"

namespace faxtray {

static constexpr size_t max_gone = 100'000;  // faxes that have left the inbox

std::string lasting_key(const fax_entry &fax)
{
    return fax.name + '\0' + std::to_string(fax.size) + ' ' + std::to_string(fax.mtime);
}

std::string lasting_name(const fax_entry &fax)
{
    char name[32];
    snprintf(name, sizeof name, "fax-%016zx", std::hash<std::string>()(lasting_key(fax)));
    return name;
}

// Returns false, so that a caller can return its result.
static bool complain(const std::string &path, const char *why)
{
    fprintf(stderr, "faxtray: %s: %s\n", printable(path).c_str(), why);
    return false;
}

// The journal.

static const std::string first_record("faxtray: known faxes\0\0", 22);

static constexpr int appending = O_RDWR | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

// The end of the record that begins at `at`, or npos if it is not whole.
static size_t end_of_record(const std::string &text, size_t at)
{
    const size_t name_end = text.find('\0', at);
    const size_t end = name_end == text.npos ? text.npos : text.find('\0', name_end + 1);
    return end == text.npos ? text.npos : end + 1;
}

static bool read_all(int fd, std::string *text)
{
    char block[64 * 1024];
    ssize_t n;
    while ((n = read_full(fd, block, sizeof block)) > 0)
        text->append(block, static_cast<size_t>(n));
    return n == 0;
}

bool known_faxes::open(const std::string &path)
{
    path_ = path;
    // The lock has a file of its own, since this one may be replaced.
    lock_.reset(::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!lock_)
        return complain(path + ".lock", strerror(errno));
    if (flock(lock_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        return complain(path, "another faxtray is at work with it");
    file_.reset(::open(path.c_str(), appending | O_CREAT, 0600));
    std::string text;
    if (!file_ || !read_all(file_.get(), &text))
        return complain(path, strerror(errno));
    size_t at = 0;
    for (size_t end; (end = end_of_record(text, at)) != text.npos; at = end)
        keys_.insert(text.substr(at, end - at - 1));
    first_time_ = at == 0;
    if (first_time_)
        added_ = first_record;
    return ftruncate(file_.get(), static_cast<off_t>(at)) == 0 || complain(path, strerror(errno));
}

void known_faxes::add(const fax_entry &fax)
{
    const auto [key, is_new] = keys_.insert(lasting_key(fax));
    if (is_new)
        added_ += *key + '\0';
}

bool known_faxes::save()
{
    // What is left of a failed attempt would make the next record part of a wrong one.
    const off_t end = lseek(file_.get(), 0, SEEK_END);
    if (end < 0 || !write_full(file_.get(), added_.data(), added_.size())) {
        const int error = errno;
        if (end >= 0 && ftruncate(file_.get(), end) != 0)
            complain(path_, strerror(errno));
        return complain(path_, strerror(error));
    }
    added_.clear();
    return true;
}

bool known_faxes::forget_gone(const std::deque<fax_entry> &listed)
{
    if (keys_.size() <= listed.size() + max_gone)
        return true;
    std::unordered_set<std::string> kept;
    std::string text = first_record;
    for (const fax_entry &fax : listed) {
        const std::string key = lasting_key(fax);
        if (keys_.contains(key) && kept.insert(key).second)
            text += key + '\0';
    }
    whole_file file(whole_file::CACHE);
    if (!file.begin(path_, true) || !file.write(text.data(), text.size()) || !file.keep())
        return complain(path_, strerror(errno));
    file_.reset(::open(path_.c_str(), appending));
    if (!file_)
        return complain(path_, strerror(errno));
    keys_ = std::move(kept);
    added_.clear();
    return true;
}

}  // namespace faxtray
