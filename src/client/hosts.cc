#include "client/hosts.h"

#include <algorithm>
#include <functional>

#include "config/munged_name.h"

namespace faxtray {

// Rendezvous hashing: each host has a rank of its own for each user, so that without the first, its users are
// spread over all others.
std::vector<std::string> hosts_for(const std::string &hosts, const std::string &user)
{
    std::vector<std::string> order = comma_separated(hosts);
    if (order.empty())
        return {hosts};
    const std::string key = munged_key(user.c_str());
    auto rank = [&](const std::string &host) { return std::hash<std::string>()(host + '\0' + key); };
    std::stable_sort(order.begin(), order.end(),
                     [&](const std::string &a, const std::string &b) { return rank(a) < rank(b); });
    return order;
}

std::string group_of(std::vector<std::string> hosts)
{
    std::sort(hosts.begin(), hosts.end());
    std::string group;
    for (const std::string &host : hosts)
        group += (group.empty() ? "" : ",") + host;
    return group;
}

bool connect_to_one(inbox_client *client, const std::vector<std::string> &hosts, int timeout,
                    std::vector<std::string> *away)
{
    // A host that takes connections and says nothing is as good as none, if there is another.
    const bool several = hosts.size() > 1;
    client->set_timeout(std::max(timeout / static_cast<int>(hosts.size()), 1));
    away->clear();
    for (const std::string &host : hosts) {
        if (client->connect(host) && (!several || client->null_call())) {
            client->set_timeout(timeout);
            return true;
        }
        away->push_back(client->failure().message);
    }
    return false;
}

}  // namespace faxtray
