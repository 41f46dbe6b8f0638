// fax_ids: the numbers by which clients name faxes.
#pragma once

#include "protocol/records.h"

namespace faxtray {

faxid_t newid();  // unique within this run of the daemon

}  // namespace faxtray
