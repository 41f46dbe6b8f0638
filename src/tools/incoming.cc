// States on disk: "ii_NAME", growing; the same, whole and flushed; NAME.
#include "tools/incoming.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>

#include "config/modem_list_file.h"
#include "disk/files.h"
#include "disk/flush.h"
#include "util/command_output.h"
#include "util/text.h"

namespace faxtray {

// The modem list

static bool complain(const std::string &what)
{
    fprintf(stderr, "faxtray-import: %s\n", what.c_str());
    return false;
}

static incoming_t incoming_of(const av_list_t *modem)
{
    incoming_t incoming = {shown(av_getv(modem, "incoming_dir"))};
    const char *permissions = av_getv(modem, "incoming_perms");
    if (const int bits = octal_perms_to_int(permissions); !is_empty(permissions) && bits >= 0)
        incoming.permissions = static_cast<mode_t>(bits);
    return incoming;
}

// All modems of the open list, by their directories.
static std::map<std::string, std::string> modems_of_directories(incoming_t *first)
{
    std::map<std::string, std::string> modems;
    while (const av_list_ptr modem{mi_get(nullptr)}) {
        if (strcmp(modem->key, "default") == 0)
            continue;
        const incoming_t incoming = incoming_of(modem.get());
        if (modems.empty())
            *first = incoming;
        std::string &names = modems[incoming.directory];
        names += (names.empty() ? "" : ", ") + printable(modem->key);
    }
    return modems;
}

static bool find_in_open_list(const std::string &modem, const std::string &location, incoming_t *incoming)
{
    if (!modem.empty()) {
        const av_list_ptr entry(mi_get(modem.c_str()));
        if (!entry)
            return complain(location + ": there is no modem " + printable(modem));
        *incoming = incoming_of(entry.get());
        return true;
    }
    const auto modems = modems_of_directories(incoming);
    if (modems.size() == 1)
        return true;
    std::string choice;
    for (const auto &[directory, names] : modems)
        choice += "\n  " + names + ": " + printable(directory);
    return complain(modems.empty() ? location + ": there are no modems; say --into DIR or -o FILE"
                                   : "say --modem NAME, one of" + choice);
}

bool find_incoming(const std::string &modem, const std::string &file, incoming_t *incoming)
{
    const char *path = file.empty() ? nullptr : file.c_str();
    const std::string location = printable(mi_location(path));
    const list_look_t look = mi_look(path);
    if (look.error)
        return complain(location + ": " +
                        (look.error == EBUSY ? "it is being written" : strerror(look.error)));
    if (!mi_open(path, stderr))
        return false;  // with a message
    const bool found = find_in_open_list(modem, location, incoming);
    mi_close();
    return found;
}

// Staging

static constexpr char staged_prefix[] = "ii_";

// "fax-20261122-093000-417.fax", the time being that of Greenwich, which no clock sets back in autumn.
static std::string name_by_time(bool problem)
{
    struct timespec now;
    struct tm parts;
    clock_gettime(CLOCK_REALTIME, &now);
    gmtime_r(&now.tv_sec, &parts);
    char time[32], name[64];
    strftime(time, sizeof time, "%Y%m%d-%H%M%S", &parts);
    snprintf(name, sizeof name, "%sfax-%s-%03ld.fax", problem ? "p" : "", time, now.tv_nsec / 1'000'000);
    return name;
}

static bool exists(const std::string &path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

// Another moment, another name.
static void wait_for_next_name()
{
    const struct timespec millisecond = {0, 1'000'000};
    nanosleep(&millisecond, nullptr);
}

void staged_fax::choose_name(const incoming_t &incoming, bool problem)
{
    std::string name = name_by_time(problem);
    for (; exists(incoming.directory + "/" + name) || exists(incoming.directory + "/" + staged_prefix + name);
         name = name_by_time(problem))
        wait_for_next_name();
    path_ = incoming.directory + "/" + staged_prefix + name;
    permissions_ = incoming.permissions;
}

bool staged_fax::create()
{
    fd_.reset(open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (fd_)
        return true;
    path_.clear();  // not ours
    return false;
}

// Who may read the faxes of a directory: its owner, and its group if that may list and search it. Whatever
// others may do there, the faxes are nobody else's business.
static mode_t readers_of(const struct stat &directory)
{
    constexpr mode_t listing = S_IRGRP | S_IXGRP;
    return S_IRUSR | S_IWUSR | ((directory.st_mode & listing) == listing ? S_IRGRP : 0);
}

// The fax belongs to whom the directory belongs to, as far as we may give it away.
bool staged_fax::finish()
{
    const std::string directory = path_.substr(0, path_.rfind('/'));
    struct stat st;
    if (stat(directory.c_str(), &st) != 0)
        return false;
    mode_t mode = readers_of(st) & permissions_;
    if (fchown(fd_.get(), geteuid() == 0 ? st.st_uid : static_cast<uid_t>(-1), st.st_gid) != 0)
        mode &= ~static_cast<mode_t>(S_IRGRP);  // our own group is none of its readers
    return fchmod(fd_.get(), mode | S_IRUSR) == 0 && futimens(fd_.get(), nullptr) == 0 &&
           close_flushed(std::move(fd_)) && sync_directory_of(path_.c_str());
}

staged_fax::~staged_fax()
{
    if (!path_.empty())
        unlink(path_.c_str());
}

std::string publish_staged(const std::string &staged)
{
    const size_t name = staged.rfind('/') + 1;
    const std::string directory = staged.substr(0, name);
    std::string path = directory + staged.substr(name + strlen(staged_prefix));
    const bool problem = path[name] == 'p';
    while (rename_new(staged.c_str(), path.c_str()) != 0) {
        if (errno != EEXIST)
            return "";
        wait_for_next_name();
        path = directory + name_by_time(problem);
    }
    return sync_directory_of(path.c_str()) ? path : "";
}

}  // namespace faxtray
