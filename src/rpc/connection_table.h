// connection_table: which connections there are, how long each has been silent, and how many each host has.
// It decides who goes when a newcomer finds every place taken. No sockets here: connections are known by
// their descriptors.
#pragma once

#include <netinet/in.h>

#include <chrono>
#include <cstddef>
#include <list>
#include <set>
#include <unordered_map>
#include <utility>

namespace faxtray {

using rpc_time = std::chrono::steady_clock::time_point;

class connection_table {
public:
    explicit connection_table(size_t places) : places_(places) {}

    void add(int fd, in_addr_t host, rpc_time now);  // throws std::bad_alloc, and has then done nothing
    void touch(int fd, rpc_time now);                // it is not idle
    void pin(int fd);  // its place is nobody's to take until it is touched again
    void remove(int fd);
    size_t size() const { return connections_.size(); }

    static constexpr int free_place = -1, no_place = -2;

    // For a newcomer from `host`: free_place, the descriptor of the connection whose place it takes, or
    // no_place. That is the longest idle one of the host with the most connections, if that has more than the
    // newcomer's host; else one that has been idle for a minute. A host that has three quarters of the places
    // takes only from itself: the last quarter is for others.
    int place_for(in_addr_t host, rpc_time now) const;

private:
    struct host_t {
        in_addr_t address;
        std::list<int> by_age;  // its connections that are not pinned, the longest idle first
        size_t count;           // of all
    };
    struct connection_t {
        host_t *host;
        rpc_time active;
        std::list<int>::iterator in_all, in_host;
        bool pinned;
    };
    std::pair<std::list<int> &, std::list<int> &> lists_of(connection_t &connection);
    void move(connection_t &connection, bool pinned);
    int idle_one(const std::list<int> &by_age, rpc_time now) const;

    size_t places_;
    std::list<int> by_age_;  // all connections that are not pinned, the longest idle first
    std::list<int> pinned_, pinned_in_host_;
    std::unordered_map<int, connection_t> connections_;
    std::unordered_map<in_addr_t, host_t> hosts_;
    std::set<std::pair<size_t, in_addr_t>> by_size_;  // the hosts, by their number of connections
};

}  // namespace faxtray
