// growing_pause: how long to wait before something that failed is tried again: each time twice as long.
#pragma once

#include <algorithm>
#include <chrono>
#include <thread>

namespace faxtray {

class growing_pause {
public:
    static constexpr double longest = 300;  // seconds, unless the first is longer

    explicit growing_pause(double first_seconds) : next_(first_seconds) {}
    bool waited() const { return waited_; }
    void wait()
    {
        std::this_thread::sleep_for(std::chrono::duration<double>(next_));
        next_ = std::max(next_, std::min(2 * next_, longest));
        waited_ = true;
    }

private:
    double next_;
    bool waited_ = false;
};

}  // namespace faxtray
