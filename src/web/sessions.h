// sessions: who is logged in, in memory only. Any thread may call.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "client/inbox_client.h"

namespace faxtray {

using web_clock = std::chrono::steady_clock;

inline constexpr std::chrono::hours most_session_age{12}, most_session_idle{1};

// 128 bits from the system's generator, as 32 hexadecimal digits.
std::string random_id();

struct web_session_t {
    std::string id;     // what the cookie holds
    std::string token;  // what requests that change something must name besides
    login who;
    web_clock::time_point began, used;
    std::map<std::string, faxid_t>
        newest;  // of each inbox, "" for the user's own: the newest fax last listed
};

class sessions {
public:
    // A copy of the new session. Those that ended are forgotten and, at the limit, that which was used least
    // recently.
    web_session_t begin(const login &who, web_clock::time_point now);
    // The session of that id. `used`: the user did something, so the hour of idleness begins anew.
    bool find(const std::string &id, bool used, web_clock::time_point now, web_session_t *session);
    void end(const std::string &id);
    void set_newest(const std::string &id, const std::string &inbox, faxid_t newest);

private:
    std::mutex mutex_;
    std::map<std::string, web_session_t> sessions_;
};

}  // namespace faxtray
