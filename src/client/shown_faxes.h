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
#include <set>
#include <string>
#include <vector>

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
    // Of `user`'s own inbox, or of the incoming one `inbox`, at a host or at several with the same faxes.
    // Nothing is read or written yet.
    shown_faxes(const std::vector<std::string> &hosts, const std::string &user, const inbox_ref &inbox);

    // Whether it is not known what the user means by this id: with several hosts, of which each has ids of
    // its own, one that none of them has shown.
    bool lacks(faxid_t id);
    // Whether the fax of this id had another name, size or time when it was last shown.
    bool differs(const fax_entry &now);
    // A whole listing is shown; what was shown before is forgotten.
    void replace(const std::deque<fax_entry> &listed);
    // Faxes are shown one by one, perhaps without their ids. With several hosts, an id that meant another fax
    // means none from the end of this run until the next listing: which of the two the user has in mind is
    // not known.
    void add(const fax_entry &fax) { add(std::deque<fax_entry>{fax}); }
    void add(const std::deque<fax_entry> &faxes);

private:
    std::string path() const { return directory_ + "/" + name_; }
    void parse(const std::string &record);
    void load();
    void save() const;

    std::string name_, directory_;  // of the file; without a directory nothing is remembered
    const bool several_hosts_;
    bool loaded_ = false;
    std::map<faxid_t, shown_fax_t> faxes_;
    std::set<faxid_t> doubtful_;  // ids that are saved as those of no fax
};

}  // namespace faxtray
