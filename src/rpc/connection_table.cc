// Every operation costs at most the logarithm of the number of hosts, so that floods of newcomers cost others
// nothing.
#include "rpc/connection_table.h"

namespace faxtray {

using namespace std::chrono_literals;

static constexpr auto idle_enough = 60s;  // to lose one's place to a newcomer

void connection_table::add(int fd, in_addr_t address, rpc_time now)
{
    // All memory first: what follows the last allocation cannot fail.
    std::list<int> in_all{fd}, in_host{fd};
    host_t &host = hosts_.try_emplace(address, host_t{address, {}, 0}).first->second;
    try {
        by_size_.insert({host.count + 1, address});
        connections_[fd] = {&host, now, in_all.begin(), in_host.begin(), false};
    } catch (...) {
        by_size_.erase({host.count + 1, address});
        if (host.count == 0)
            hosts_.erase(address);
        throw;
    }
    by_size_.erase({host.count++, address});
    by_age_.splice(by_age_.end(), in_all);
    host.by_age.splice(host.by_age.end(), in_host);
}

// The lists that it is in, for all connections and for its host.
std::pair<std::list<int> &, std::list<int> &> connection_table::lists_of(connection_t &connection)
{
    if (connection.pinned)
        return {pinned_, pinned_in_host_};
    return {by_age_, connection.host->by_age};
}

void connection_table::move(connection_t &connection, bool pinned)
{
    const auto [all, of_host] = lists_of(connection);
    connection.pinned = pinned;
    const auto [new_all, new_of_host] = lists_of(connection);
    new_all.splice(new_all.end(), all, connection.in_all);
    new_of_host.splice(new_of_host.end(), of_host, connection.in_host);
}

void connection_table::touch(int fd, rpc_time now)
{
    connection_t &connection = connections_.at(fd);
    connection.active = now;
    move(connection, false);
}

void connection_table::pin(int fd)
{
    move(connections_.at(fd), true);
}

void connection_table::remove(int fd)
{
    const auto found = connections_.find(fd);
    if (found == connections_.end())
        return;
    host_t &host = *found->second.host;
    const auto [all, of_host] = lists_of(found->second);
    all.erase(found->second.in_all);
    of_host.erase(found->second.in_host);
    connections_.erase(found);
    // The host moves to its new number without an allocation.
    auto entry = by_size_.extract({host.count--, host.address});
    if (host.count == 0) {
        hosts_.erase(entry.value().second);
        return;
    }
    entry.value().first = host.count;
    by_size_.insert(std::move(entry));
}

// The longest idle connection of a list, if it has been idle for long enough.
int connection_table::idle_one(const std::list<int> &by_age, rpc_time now) const
{
    if (by_age.empty() || now - connections_.at(by_age.front()).active < idle_enough)
        return no_place;
    return by_age.front();
}

int connection_table::place_for(in_addr_t address, rpc_time now) const
{
    if (size() < places_)
        return free_place;
    const auto own = hosts_.find(address);
    const size_t own_count = own == hosts_.end() ? 0 : own->second.count;
    if (own_count >= places_ - places_ / 4)
        return idle_one(own->second.by_age, now);
    // The newcomer would make its host one larger: hosts of one size must not take from each other in turn.
    const auto &[most, address_of_most] = *by_size_.rbegin();
    const std::list<int> &of_most = hosts_.at(address_of_most).by_age;
    if (most > own_count + 1 && !of_most.empty())
        return of_most.front();
    return idle_one(by_age_, now);
}

}  // namespace faxtray
