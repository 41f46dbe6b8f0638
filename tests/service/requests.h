// requests: arguments of the inbox procedures, in wire form. `who` is an identity, or word(0) for none.
#pragma once

#include <ostream>
#include <string>

#include "support/wire.h"

namespace faxtray {

inline std::string index_of(const std::string &who, uint32_t faxid = 0, uint32_t how = 1, uint32_t count = 0,
                            uint32_t check_value = 0)
{
    return who + word(faxid) + word(how) + word(count) + word(check_value);
}

inline std::string index_of(const std::string &who, const std::string &inbox)
{
    return index_of(who + text(inbox));
}

inline std::string part_of(const std::string &who, uint32_t faxid, uint32_t size, uint32_t offset)
{
    return who + word(faxid) + word(size) + word(offset);
}

inline std::string recipients_for(const std::string &who, uint32_t check_value = 0)
{
    return who + text("") + word(0) + word(0) + text("") + word(check_value);
}

// The faxes of a user's inbox, or of an incoming inbox.
inline std::vector<listed_fax_t> list(const std::string &who)
{
    return call(2, index_of(who)).faxes();
}

inline std::vector<listed_fax_t> list(const std::string &who, const std::string &inbox)
{
    return call(13, index_of(who, inbox)).faxes();
}

// The users of a site.
inline const std::string al = identity("al smith");
inline const std::string bea = identity("Bea", "2fc7b405");

}  // namespace faxtray
