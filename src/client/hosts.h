// hosts: several hosts that serve the same faxes, of which a client asks one.
//
// Each has fax ids of its own, so a user's client keeps to one host as long as that answers.
#pragma once

#include <string>
#include <vector>

#include "client/inbox_client.h"

namespace faxtray {

// The hosts between commas in `hosts`, in the order in which this user's clients try them. Users are spread
// evenly over the hosts, and one that is added or taken away changes the first host only of those users who
// get it, or had it.
std::vector<std::string> hosts_for(const std::string &hosts, const std::string &user);

// The same hosts as one text, whatever order they were named in.
std::string group_of(std::vector<std::string> hosts);

// Connects to the first of the hosts that answers. They share the timeout, in seconds. False if none does.
// `away` gets the reason of each that did not answer.
bool connect_to_one(inbox_client *client, const std::vector<std::string> &hosts, int timeout,
                    std::vector<std::string> *away);

}  // namespace faxtray
