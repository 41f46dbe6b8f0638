// fax_ids: the numbers by which clients name faxes. None is given out twice, across restarts too: a client
// that removes a fax by the id of an old listing must not hit another one.
//
// What was given out is remembered in the file "fax_ids.HOST" in the work directory, HOST being this host's
// name, since hosts may share the directory.
#pragma once

#include "protocol/records.h"

namespace faxtray {

// The next id, never 0. Ids begin above the time in seconds and above all that an earlier run can have given
// out. Never fails: when the file cannot be read or written, which is logged, ids begin well above the time
// or are at least unique within this run.
faxid_t newid();

}  // namespace faxtray
