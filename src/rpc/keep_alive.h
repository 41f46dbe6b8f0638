// keep_alive: a connection whose peer may be silent for hours, yet has to be there.
#pragma once

namespace faxtray {

// Lets the system probe the peer of a TCP socket, or of the connections that a listening one accepts, once
// nothing has been heard of it for a minute. Two minutes after it has vanished the connection ends with
// ETIMEDOUT. False with errno.
bool set_keep_alive(int fd);

}  // namespace faxtray
