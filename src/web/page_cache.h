// page_cache: what was made of faxes lately, so that it need not be fetched and decoded again. It is asked
// only after the server has accepted the user for the fax in the same request. Any thread may call.
#pragma once

#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "util/owned.h"

namespace faxtray {

// Some bytes, or a file of so many: the fax itself, as it was fetched, lies on the disk.
struct cached_t {
    std::string bytes;
    unique_fd file;
    size_t file_size = 0;
};
using cached_ptr = std::shared_ptr<const cached_t>;

class page_cache {
public:
    explicit page_cache(size_t most) : most_(most) {}  // bytes

    cached_ptr find(const std::string &user, const std::string &key);  // null if it is not there
    // What was used least recently gives way; what is larger than a quarter of the cache does not get in.
    void add(const std::string &user, const std::string &key, cached_ptr what);
    void forget(const std::string &user);  // all that is kept for that user
    size_t bytes();                        // that are kept now, files and keys included

private:
    using place_t = std::pair<std::string, std::string>;  // user and key
    struct entry_t {
        cached_ptr what;
        size_t cost;
        std::list<place_t>::iterator used;
    };
    using entries_t = std::map<place_t, entry_t>;
    entries_t::iterator drop(entries_t::iterator entry);

    const size_t most_;
    std::mutex mutex_;
    size_t bytes_ = 0;
    entries_t entries_;
    std::list<place_t> used_;  // least recently first
};

}  // namespace faxtray
