// regular: what differs from run to run, written so that it does not: times, pids, fax ids, temporary names.
#pragma once

#include <ctime>
#include <map>
#include <string>

namespace faxtray {

class regular_t {
public:
    // Fax ids become <fax 1>, <fax 2>... in the order in which they first appear, so that a mistaken identity
    // shows; times become <now>, <now+24h>, <now-2m>.
    std::string made_regular(std::string text);

private:
    const time_t start_ = time(nullptr);
    std::map<std::string, size_t> ids_;
};

}  // namespace faxtray
