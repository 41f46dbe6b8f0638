// view_command: shows a fax, in the terminal or by a program for PDF files.
#pragma once

#include "client/client_session.h"

namespace faxtray {

exit_status view_command(session &s);

}  // namespace faxtray
