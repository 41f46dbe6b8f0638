#include "rpc/listen_address.h"

#include <arpa/inet.h>

#include <charconv>
#include <string>
#include <system_error>

namespace faxtray {

static constexpr in_addr_t first_of_no_host = 0xE0000000;  // 224.0.0.0: multicast, then reserved ones

static sockaddr_in address_of(in_addr_t host)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(host);
    return address;
}

sockaddr_in any_address()
{
    return address_of(INADDR_ANY);
}

sockaddr_in loopback_address()
{
    return address_of(INADDR_LOOPBACK);
}

bool parse_listen_address(const char *text, sockaddr_in *address)
{
    const std::string all = text, host = all.substr(0, all.find(':'));
    sockaddr_in parsed = any_address();
    if (!host.empty() && (inet_pton(AF_INET, host.c_str(), &parsed.sin_addr) != 1 ||
                          ntohl(parsed.sin_addr.s_addr) >= first_of_no_host))
        return false;
    if (host.size() < all.size()) {
        const char *const begin = all.data() + host.size() + 1, *const end = all.data() + all.size();
        uint16_t port = 0;  // 70000 does not fit, and from_chars takes neither signs nor blanks
        const auto [rest, error] = std::from_chars(begin, end, port);
        if (error != std::errc() || rest != end || port == 0)
            return false;
        parsed.sin_port = htons(port);
    }
    *address = parsed;
    return true;
}

}  // namespace faxtray
