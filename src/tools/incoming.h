// incoming: where an imported fax goes: the incoming directory of a modem, and a file in it.
#pragma once

#include <sys/types.h>

#include <string>

#include "util/owned.h"

namespace faxtray {

struct incoming_t {
    std::string directory;
    mode_t permissions = 0777;  // that a fax has at most: incoming_perms of the modem
};

// What the modem list says: the incoming directory of `modem` or, if that is "", the one that all modems
// have. `file` is the path of the list; "": found as the daemon finds it. False with a message on standard
// error.
bool find_incoming(const std::string &modem, const std::string &file, incoming_t *incoming);

// A fax on its way into an incoming directory. Until it is published it is "ii_NAME", which nobody lists.
// NAME is "fax-" and the time, so that names stand in the order of arrival; for a problem fax "pfax-".
//
// Members that can fail return false with errno.
class staged_fax {
public:
    ~staged_fax();  // removes what was neither published nor kept

    void choose_name(const incoming_t &incoming, bool problem);  // of a file that does not exist
    const std::string &path() const { return path_; }            // "DIRECTORY/ii_NAME"
    bool create();
    int fd() const { return fd_.get(); }

    // Puts the whole fax on the disk, readable for those who may read the directory, as far as the modem's
    // permissions go, with the present time: listings leave out faxes that seem older than the last one.
    bool finish();
    void keep() { path_.clear(); }  // it stays, whatever happens

private:
    std::string path_;
    mode_t permissions_ = 0;
    unique_fd fd_;
};

// Gives the finished fax at `staged`, a staged_fax's path, the name under which it is listed, and returns its
// path once that is on the disk; "" with errno.
std::string publish_staged(const std::string &staged);

}  // namespace faxtray
