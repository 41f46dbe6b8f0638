// node_queue: one first-in first-out queue of values, shared by the process and all children that it has
// forked since nshare().
#pragma once

#include <cstdint>

namespace faxtray {

int nshare();  // makes the queue; 1, or 0 without memory: it then stays empty

int nenq(intptr_t value);  // appends; returns 1, or 0 when 65536 values are queued
intptr_t ndeq();           // removes the head; returns the new head's value, 0 if none is left
intptr_t nhead();          // the oldest value, 0 when empty
intptr_t ntail();          // the newest value, 0 when empty; for other programs, none here calls it
void npurge();             // empties the queue
int ncount();              // the number of values queued

// While one of these lives, no other process changes the queue. A process that dies meanwhile lets go.
class nlock {
public:
    nlock();
    ~nlock();
    nlock(const nlock &) = delete;
    nlock &operator=(const nlock &) = delete;
};

}  // namespace faxtray
