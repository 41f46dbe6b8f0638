// One file for each host, user and inbox, replaced as a whole. For each fax it has a record "ID SIZE MTIME
// NAME" and a null byte, the only one that no name contains. A record that makes no sense is left out.
#include "client/shown_faxes.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <functional>

#include "client/hosts.h"
#include "config/munged_name.h"
#include "disk/user_directory.h"
#include "disk/whole_file.h"
#include "util/io.h"
#include "util/owned.h"

namespace faxtray {

// Of an inbox, those with the highest ids. A script that takes faxes and never lists adds them for ever.
static constexpr size_t max_faxes = 100'000;
static constexpr off_t max_file = 64 * 1024 * 1024;  // bytes

// The directory.

static std::string cache_directory()
{
    return private_directory("XDG_CACHE_HOME", ".cache");
}

// Waits until no other client changes a file there, but not for ever: that would cost more than the loss of
// what the other remembers.
static unique_fd lock(const std::string &directory)
{
    unique_fd fd(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int tries = 0; flock(fd.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK && tries < 100;
         tries++)
        usleep(10'000);
    return fd;
}

// The file.

// The file's name tells nothing of the inbox, and is a name whatever the inbox is called. Users are hashed as
// the server compares them.
shown_faxes::shown_faxes(const std::vector<std::string> &hosts, const std::string &user,
                         const inbox_ref &inbox)
    : several_hosts_(hosts.size() > 1)
{
    const std::string key = group_of(hosts) + '\0' + munged_key(user.c_str()) + '\0' + inbox.value_or("");
    char name[32];
    snprintf(name, sizeof name, "%016zx", std::hash<std::string>()(key));
    name_ = name;
}

void shown_faxes::parse(const std::string &record)
{
    const char *at = record.data(), *const end = at + record.size();
    auto number = [&](auto *value) {
        const auto [next, error] = std::from_chars(at, end, *value);
        at = next + 1;
        return error == std::errc() && next < end && *next == ' ';
    };
    faxid_t id;
    shown_fax_t fax = {};
    if (!number(&id) || !number(&fax.size) || !number(&fax.mtime))
        return;
    fax.name.assign(at, end);
    faxes_.insert_or_assign(id, std::move(fax));
}

void shown_faxes::load()
{
    loaded_ = true;
    faxes_.clear();
    directory_ = cache_directory();
    if (directory_.empty())
        return;
    const unique_fd fd(open(path().c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status;
    if (!fd || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size > max_file)
        return;
    std::string text(static_cast<size_t>(status.st_size), '\0');
    const ssize_t n = read_full(fd.get(), text.data(), text.size());
    text.resize(n > 0 ? static_cast<size_t>(n) : 0);
    for (size_t at = 0, end; (end = text.find('\0', at)) != std::string::npos; at = end + 1)
        parse(text.substr(at, end - at));
}

void shown_faxes::save() const
{
    if (directory_.empty())
        return;
    std::string text;
    size_t excess = faxes_.size() - std::min(faxes_.size(), max_faxes);
    for (const auto &[id, known] : faxes_) {
        if (excess > 0) {
            excess--;
            continue;
        }
        const shown_fax_t fax = doubtful_.contains(id) ? shown_fax_t() : known;
        text += std::to_string(id) + ' ' + std::to_string(fax.size) + ' ' + std::to_string(fax.mtime) + ' ' +
                fax.name + '\0';
    }
    whole_file file(whole_file::CACHE);
    // An older file would have the user refused what was shown just now.
    if (!file.begin(path(), true) || !file.write(text.data(), text.size()) || !file.keep())
        unlink(path().c_str());
}

// What is shown.

// What of a fax is remembered. No file has a longer name, whatever the server says.
static shown_fax_t record_of(const fax_entry &fax)
{
    return {fax.name.substr(0, NAME_MAX), fax.size, fax.mtime};
}

bool shown_faxes::lacks(faxid_t id)
{
    if (!loaded_)
        load();
    return several_hosts_ && !faxes_.contains(id);
}

bool shown_faxes::differs(const fax_entry &now)
{
    if (!loaded_)
        load();
    const auto found = faxes_.find(now.id);
    return found != faxes_.end() && found->second != record_of(now);
}

void shown_faxes::replace(const std::deque<fax_entry> &listed)
{
    const unique_fd locked = lock(cache_directory());
    load();
    const std::map<faxid_t, shown_fax_t> before = std::exchange(faxes_, {});
    doubtful_.clear();
    for (const fax_entry &fax : listed)
        faxes_.insert_or_assign(fax.id, record_of(fax));
    if (faxes_ != before)
        save();
}

void shown_faxes::add(const std::deque<fax_entry> &faxes)
{
    auto is_known = [&](const fax_entry &fax) { return faxes_.contains(fax.id) && !differs(fax); };
    if (loaded_ && std::all_of(faxes.begin(), faxes.end(), is_known))
        return;
    const unique_fd locked = lock(cache_directory());
    load();  // again, if it was: another client may have added to it before it was our turn
    for (const fax_entry &fax : faxes) {
        if (several_hosts_ && differs(fax))
            doubtful_.insert(fax.id);
        faxes_.insert_or_assign(fax.id, record_of(fax));
    }
    save();
}

}  // namespace faxtray
