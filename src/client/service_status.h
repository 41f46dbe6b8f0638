// service_status: how the parts of a fax service are: what a client can ask from anywhere and, where it runs
// on the server's own host, what the server's lists need there.
#pragma once

#include <string>
#include <vector>

#include "client/inbox_client.h"

namespace faxtray {

enum class part_state { OK, WARNING, FAILED, NOT_NEEDED };

struct part_t {
    std::string name;  // "rpcbind", "faxtrayd", "faxregd", "mail agent", "converters", "disk"
    part_state state;
    std::string detail;       // for people; may be ""
    std::string path = "";    // disk: where it is mounted
    double free_share = 0.0;  // disk: of its room, 0 to 1
};

struct service_status_t {
    std::string host;
    std::vector<part_t> parts;       // as far as they could be looked at
    std::string version;             // as faxtrayd tells it, "" while it does not answer
    double answer_seconds = 0;       // it took for that
    settings_list settings;          // faxtrayd's own answer to get_status
    bool lists_read = false;         // the parts of the server's host are looked at only then
    size_t users = 0, incoming = 0;  // inboxes of either kind, if lists_read

    bool is_well() const;  // no part has failed, nor has a warning
};

inline constexpr double low_share = 0.10;  // a disk with less free room is worth a warning

// Asks the service at `host`, in the name of `user`, and waits at most `seconds` for each answer. On the
// server's host the lists are those that faxtrayd finds with the same $ONDRIXHOME and directory; who cannot
// read them learns what clients elsewhere do.
service_status_t ask_service(const std::string &host, const std::string &user, int seconds);

}  // namespace faxtray
