// shown_faxes: which faxes of an inbox the user was last shown, kept from one run of the command to the next.
// An id that by now means another fax than the one the user saw is then noticed, and not removed or delivered
// in its place.
//
// It is a cache: whatever is wrong with its directory or its files, nothing is reported, and what is not
// known is not remembered.
#pragma once

#include <ctime>
#include <deque>
#include <map>
#include <string>

#include "client/inbox_client.h"

namespace faxtray {

struct shown_fax_t {
    std::string name;
    u_int size;
    time_t mtime;
    bool operator==(const shown_fax_t &) const = default;
};

class shown_faxes {
public:
    // Of `user`'s own inbox at `host`, or of the incoming one `inbox`. Nothing is read or written yet.
    shown_faxes(const std::string &host, const std::string &user, const inbox_ref &inbox);

    // Whether the fax of this id had another name, size or time when it was last shown.
    bool differs(const fax_entry &now);
    // A whole listing is shown; what was shown before is forgotten.
    void replace(const std::deque<fax_entry> &listed);
    void add(const fax_entry &fax);  // one fax is shown

private:
    std::string path() const { return directory_ + "/" + name_; }
    void insert(faxid_t id, shown_fax_t fax);
    void parse(const std::string &record);
    void load();
    void save() const;

    std::string name_, directory_;  // of the file; without a directory nothing is remembered
    bool loaded_ = false;
    std::map<faxid_t, shown_fax_t> faxes_;
};

}  // namespace faxtray
