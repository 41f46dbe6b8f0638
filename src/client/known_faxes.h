// known_faxes: which faxes of an inbox have been dealt with already, kept in a file from one run of a command
// to the next. A fax is known by its name, size and time: ids change with restarts of the server, and differ
// from host to host.
//
// A fax stays known after it has left the inbox: one that comes back, as when a disk of the server was away
// for a while, is not new.
#pragma once

#include <deque>
#include <string>
#include <unordered_set>

#include "client/inbox_client.h"
#include "util/owned.h"

namespace faxtray {

// Name, size and time of a fax as one text: the same for the same fax at whatever host and under whatever id.
// It contains null bytes.
std::string lasting_key(const fax_entry &fax);

// A file name for it, "fax-0123456789abcdef", in which nothing is as strangers wrote it.
std::string lasting_name(const fax_entry &fax);

class known_faxes {
public:
    // The functions that return bool return false with the reason on standard error.

    // Reads the file `path`, makes it, for our user alone, if it is missing, and keeps it locked: a command
    // of the same purpose is refused meanwhile. Call it once, first.
    bool open(const std::string &path);
    // Whether nothing had ever been saved when the file was opened. The first save() ends this for later
    // runs, even if nothing was added.
    bool first_time() const { return first_time_; }
    size_t size() const { return keys_.size(); }

    bool contains(const fax_entry &fax) const { return keys_.contains(lasting_key(fax)); }
    // Remembers the fax; in the file only after save().
    void add(const fax_entry &fax);
    // Appends what was added to the file. A kill afterwards loses none of it; a crash of the machine may, so
    // that a fax may be dealt with twice, but never not at all.
    bool save();
    // Forgets faxes that are no longer in the inbox, once there are more than 100,000 of them. `listed` is
    // the whole inbox.
    bool forget_gone(const std::deque<fax_entry> &listed);

private:
    std::string path_, added_;  // what save() appends
    unique_fd lock_, file_;
    bool first_time_ = true;
    std::unordered_set<std::string> keys_;
};

}  // namespace faxtray
