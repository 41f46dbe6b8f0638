// wait_for: waits until a condition holds: asked again every few milliseconds, given up after a while.
#pragma once

#include <poll.h>

#include <ctime>

namespace faxtray {

inline constexpr int PATIENCE = 30;  // seconds; only a fault takes that long

// Whether `condition` came true within PATIENCE seconds.
template <class F> bool wait_for(F condition)
{
    for (time_t deadline = time(nullptr) + PATIENCE; !condition(); poll(nullptr, 0, 5))
        if (time(nullptr) > deadline)
            return false;
    return true;
}

}  // namespace faxtray
