#include "web/login_limits.h"

#include <algorithm>

#include "config/munged_name.h"

namespace faxtray {

static constexpr size_t most_pairs = 100'000;

// Users are the same for whom the server finds the same entry.
static std::string pair_of(const std::string &address, const std::string &user)
{
    return address + '\0' + munged_key(user.c_str());
}

bool login_limits::begin(const std::string &address, const std::string &user, web_clock::time_point now)
{
    const std::lock_guard lock(mutex_);
    const auto is_over = [&](web_clock::time_point failed) { return now - failed >= failed_login_time; };
    if (failures_.size() >= most_pairs) {
        std::erase_if(failures_, [&](const auto &entry) { return is_over(entry.second.back()); });
        if (failures_.size() >= most_pairs)
            return false;
    }
    auto &failed = failures_[pair_of(address, user)];
    while (!failed.empty() && is_over(failed.front()))
        failed.pop_front();
    if (failed.size() >= most_failed_logins)
        return false;
    failed.push_back(now);
    return true;
}

void login_limits::succeeded(const std::string &address, const std::string &user, bool forgive)
{
    const std::lock_guard lock(mutex_);
    const auto found = failures_.find(pair_of(address, user));
    if (found == failures_.end())
        return;
    if (!forgive)
        found->second.pop_back();
    if (forgive || found->second.empty())
        failures_.erase(found);
}

}  // namespace faxtray
