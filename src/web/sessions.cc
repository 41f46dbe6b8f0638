#include "web/sessions.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

namespace faxtray {

static constexpr size_t most_sessions = 10'000;

std::string random_id()
{
    std::array<unsigned char, 16> bytes;
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        throw std::runtime_error("no random bytes");
    std::string id;
    for (const unsigned char byte : bytes) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02x", byte);
        id += digits;
    }
    return id;
}

static bool has_ended(const web_session_t &session, web_clock::time_point now)
{
    return now - session.began >= most_session_age || now - session.used >= most_session_idle;
}

web_session_t sessions::begin(const login &who, web_clock::time_point now)
{
    web_session_t session = {random_id(), random_id(), who, now, now, {}};
    const std::lock_guard lock(mutex_);
    std::erase_if(sessions_, [&](const auto &entry) { return has_ended(entry.second, now); });
    if (sessions_.size() >= most_sessions)
        sessions_.erase(
            std::min_element(sessions_.begin(), sessions_.end(),
                             [](const auto &a, const auto &b) { return a.second.used < b.second.used; }));
    sessions_.emplace(session.id, session);
    return session;
}

bool sessions::find(const std::string &id, bool used, web_clock::time_point now, web_session_t *session)
{
    const std::lock_guard lock(mutex_);
    const auto found = sessions_.find(id);
    if (found == sessions_.end())
        return false;
    if (has_ended(found->second, now)) {
        sessions_.erase(found);
        return false;
    }
    if (used)
        found->second.used = now;
    *session = found->second;
    return true;
}

void sessions::end(const std::string &id)
{
    const std::lock_guard lock(mutex_);
    sessions_.erase(id);
}

void sessions::set_newest(const std::string &id, const std::string &inbox, faxid_t newest)
{
    const std::lock_guard lock(mutex_);
    if (const auto found = sessions_.find(id); found != sessions_.end())
        found->second.newest[inbox] = newest;
}

}  // namespace faxtray
