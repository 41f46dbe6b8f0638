#include "web/page_cache.h"

namespace faxtray {

static constexpr size_t overhead = 256;  // bytes of an entry besides key and value, or a few more

page_cache::entries_t::iterator page_cache::drop(entries_t::iterator entry)
{
    bytes_ -= entry->second.cost;
    used_.erase(entry->second.used);
    return entries_.erase(entry);
}

cached_ptr page_cache::find(const std::string &user, const std::string &key)
{
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find({user, key});
    if (found == entries_.end())
        return nullptr;
    used_.splice(used_.end(), used_, found->second.used);
    return found->second.what;
}

void page_cache::add(const std::string &user, const std::string &key, cached_ptr what)
{
    const size_t cost = what->bytes.size() + what->file_size + 2 * (user.size() + key.size()) + overhead;
    if (cost > most_ / 4)
        return;
    const std::lock_guard lock(mutex_);
    const place_t place = {user, key};
    if (const auto found = entries_.find(place); found != entries_.end())
        drop(found);
    while (bytes_ + cost > most_)
        drop(entries_.find(used_.front()));
    entries_.emplace(place, entry_t{std::move(what), cost, used_.insert(used_.end(), place)});
    bytes_ += cost;
}

void page_cache::forget(const std::string &user)
{
    const std::lock_guard lock(mutex_);
    auto at = entries_.lower_bound({user, ""});
    while (at != entries_.end() && at->first.first == user)
        at = drop(at);
}

size_t page_cache::bytes()
{
    const std::lock_guard lock(mutex_);
    return bytes_;
}

}  // namespace faxtray
