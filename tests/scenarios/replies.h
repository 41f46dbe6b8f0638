// replies: what the daemon answered, as lines of text. The records are decoded by the routines that rpcgen
// makes of interface/faxtray.x, not by ours.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "support/wire.h"

namespace faxtray {

// The reply in lines, everything it holds. The ids of the faxes in it are added to `ids` by their names.
std::vector<std::string> shown_reply(const reply_t &reply, std::map<std::string, uint32_t> *ids);

// `bytes` in quotes, those that do not print as \xHH; long ones by their number and a checksum.
std::string shown_bytes(const std::string &bytes);

}  // namespace faxtray
