// regd_requests: the records of the registry's protocol, their making and freeing.
#pragma once

#include "protocol/records.h"

namespace faxtray {

inline constexpr u_long REGD_PROG_BASE = 0x55BBC;  // plus the queue number, which is at least 1
inline constexpr u_long REGD_VERS = 1;

}  // namespace faxtray
