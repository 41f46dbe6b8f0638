// Ids start at the time of day, so that an id of an earlier run is most likely unknown to this one.
#include "inbox/fax_ids.h"

#include <ctime>

namespace faxtray {

faxid_t newid()
{
    static faxid_t last = static_cast<faxid_t>(time(nullptr));
    return ++last;
}

}  // namespace faxtray
