// A resolver has no time limit of its own, and may take minutes.
#include "rpc/host_address.h"

#include <netdb.h>
#include <sys/socket.h>

#include <cstring>
#include <string>

#include "util/owned.h"
#include "util/timed_answer.h"

namespace faxtray {

// The address as four bytes; "" if there is none.
static std::string resolve(const char *name)
{
    addrinfo hints = {}, *found = nullptr;
    hints.ai_family = AF_INET;
    if (getaddrinfo(name, nullptr, &hints, &found) != 0)
        return "";
    const in_addr address = reinterpret_cast<const sockaddr_in *>(found->ai_addr)->sin_addr;
    freeaddrinfo(found);
    return {reinterpret_cast<const char *>(&address), sizeof address};
}

std::optional<in_addr> find_host(const char *name, long seconds)
{
    const std::optional<std::string> answer = timed_answer(seconds, [name] { return resolve(name); });
    in_addr address;
    if (!answer || answer->size() != sizeof address)
        return {};
    memcpy(&address, answer->data(), sizeof address);
    return address;
}

// The system binds a socket to its own addresses only.
bool is_own_address(in_addr address)
{
    const unique_fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_addr = address;
    return fd && bind(fd.get(), reinterpret_cast<const sockaddr *>(&own), sizeof own) == 0;
}

}  // namespace faxtray
