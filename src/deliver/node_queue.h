// node_queue: one first-in first-out queue of values for the process.
#pragma once

#include <cstdint>

namespace faxtray {

int nenq(intptr_t value);  // appends; 1, or 0 without memory
intptr_t ndeq();           // removes the head; the new head's value, 0 when none is left
intptr_t nhead();          // 0 when empty
intptr_t ntail();          // 0 when empty
void npurge();
int ncount();  // how many are queued

}  // namespace faxtray
