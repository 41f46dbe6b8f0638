// sync_command: puts the faxes of an inbox into a Maildir, as mail.
#pragma once

#include "client/client_session.h"

namespace faxtray {

exit_status sync_command(session &s);

}  // namespace faxtray
