// host_address: which IPv4 address a host's name means, and whether that is this host.
#pragma once

#include <netinet/in.h>

#include <optional>

namespace faxtray {

// The first address of that name; none if it has none, or if the resolver takes more than `seconds`.
std::optional<in_addr> find_host(const char *name, long seconds);

// Whether the address is one of this host's.
bool is_own_address(in_addr address);

}  // namespace faxtray
