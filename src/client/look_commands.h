// look_commands: the commands of faxtray that ask the server and print its answer, named as in faxtray(1).
#pragma once

#include "client/client_session.h"

namespace faxtray {

exit_status list_command(session &s);
exit_status count_command(session &s);
exit_status info_command(session &s);
exit_status inboxes_command(session &s);
exit_status recipients_command(session &s);
exit_status rev_command(session &s);

}  // namespace faxtray
