// get_command: fetches faxes into files, as they are or in another form.
#pragma once

#include "client/client_session.h"

namespace faxtray {

exit_status get_command(session &s);

}  // namespace faxtray
