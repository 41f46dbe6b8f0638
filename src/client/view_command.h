// view_command: shows a fax, of the server or in a file, in the terminal or by a program for PDF files.
#pragma once

#include "client/client_session.h"

namespace faxtray {

exit_status view_command(session &s);

// The same for the fax file of this machine that --file names; asks no server.
exit_status view_file_command(const options &chosen);

}  // namespace faxtray
