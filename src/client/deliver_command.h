// deliver_command: has the server deliver a fax of an incoming inbox.
#pragma once

#include "client/client_session.h"

namespace faxtray {

exit_status deliver_command(session &s);

}  // namespace faxtray
