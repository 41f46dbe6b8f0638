// node_queue: one first-in first-out queue of values for the whole process.
#pragma once

#include <cstdint>

namespace faxtray {

int nenq(intptr_t value);  // appends; returns 1, or 0 when out of memory
intptr_t ndeq();           // removes the head; returns the new head's value, 0 if none is left
intptr_t nhead();          // the oldest value, 0 when empty
intptr_t ntail();          // the newest value, 0 when empty; for other programs, none here calls it
void npurge();             // empties the queue
int ncount();              // the number of values queued

}  // namespace faxtray
