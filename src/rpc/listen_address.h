// listen_address: where a service listens, as administrators write it: [ADDRESS][:PORT].
#pragma once

#include <netinet/in.h>

namespace faxtray {

// Every address of this host, or its loopback address only, which no other host can reach; any port.
sockaddr_in any_address();
sockaddr_in loopback_address();

// Reads `text`: an IPv4 address in numbers, a colon with a port from 1 to 65535, or both. What is left out is
// any; "" is any_address(). False, with `address` untouched, for all else: also for addresses that no host
// can have (multicast, broadcast and reserved ones), and for names, since at start-up they may not resolve
// yet.
bool parse_listen_address(const char *text, sockaddr_in *address);

}  // namespace faxtray
