// requests: arguments of the inbox procedures, in wire form, and the users of a site.
#pragma once

#include <string>

#include "support/wire.h"

namespace faxtray {

inline const std::string al = identity("al smith");
inline const std::string bea = identity("Bea", "2fc7b405");

// The arguments of a listing after the caller: from the oldest fax on, as many as fit, even if unchanged.
inline const std::string whole_index = word(0) + word(1) + word(0) + word(0);

inline std::string part_of(const std::string &who, uint32_t faxid, uint32_t size, uint32_t offset)
{
    return who + word(faxid) + word(size) + word(offset);
}

// The ids of the faxes in a user's inbox.
inline std::vector<uint32_t> list(const std::string &who)
{
    return call(2, who + whole_index).fax_ids();
}

}  // namespace faxtray
