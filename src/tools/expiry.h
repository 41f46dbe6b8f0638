// expiry: removes faxes that have been in an inbox for long, as the inbox's user would by faxtray rm: each by
// a request to faxtrayd, which knows the fax that it has listed, and writes the access log.
#pragma once

#include <string>
#include <vector>

#include "client/inbox_client.h"

namespace faxtray {

struct expiry_t {
    std::string host = "localhost";  // of faxtrayd, which must be this host
    time_t before = 0;               // faxes of this time and later stay
    bool dry_run = false;            // print only which would go
};

enum class expiry_result {
    DONE,
    FAILED,       // something could not be removed, or looked at
    REFUSED,      // an inbox is not known; nothing was removed
    UNREACHABLE,  // faxtrayd was not reached, or the connection was lost
};

// Removes the old faxes of the inboxes, by user names and by descriptions or handles of incoming inboxes, and
// prints each. All inboxes are found before the first fax is removed. Reasons of failures go to standard
// error; one inbox that fails does not keep the others from their turn.
//
// The lists are those that faxtrayd finds with the same $ONDRIXHOME and directory, and must be readable: they
// have the passwords. For incoming inboxes dvWork_dir must be the daemon's, since a delivery reads its fax
// again for each recipient: while one is running, these inboxes are left alone.
expiry_result expire(const expiry_t &wish, const std::vector<std::string> &inboxes);

}  // namespace faxtray
