// remove_commands: the commands of faxtray that remove faxes from the server.
#pragma once

#include "client/client_session.h"

namespace faxtray {

exit_status rm_command(session &s);
exit_status commit_command(session &s);

// Removes one fax from the server, if its id still means the one that was shown last. On failure, with the
// reason printed, the exit status.
exit_status remove_fax(session &s, faxid_t id, fax_entry *fax);

}  // namespace faxtray
