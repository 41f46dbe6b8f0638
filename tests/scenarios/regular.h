// regular: what differs from run to run, written so that it does not: times, pids, fax ids, temporary names.
#pragma once

#include <string>

namespace faxtray {

// Fax ids become <fax 1>, <fax 2>... in the order in which they first appear, so that a mistaken identity
// shows; times become <now>, <now+24h>, <now-2m>.
std::string made_regular(std::string text);

void forget_fax_ids();  // those of a daemon that has ended may come again

}  // namespace faxtray
