// login_limits: how often a password may be guessed. Failures count for an address and a user together, so
// that nobody can lock a user out from everywhere. Any thread may call.
#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <string>

#include "web/sessions.h"

namespace faxtray {

inline constexpr size_t most_failed_logins = 10;
inline constexpr std::chrono::minutes failed_login_time{10};

class login_limits {
public:
    // Counts an attempt as failed, so that many at once are no more than many in turn. False if the pair has
    // had too many.
    bool begin(const std::string &address, const std::string &user, web_clock::time_point now);
    // It did not fail: `forgive` also what failed before; else it does not count.
    void succeeded(const std::string &address, const std::string &user, bool forgive);

private:
    std::mutex mutex_;
    std::map<std::string, std::deque<web_clock::time_point>> failures_;
};

}  // namespace faxtray
