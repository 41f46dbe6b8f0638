// client_config: the configuration file of the command faxtray: which host, user and password file it takes
// when neither the command line nor the environment says.
#pragma once

#include <string>

#include "client/client_session.h"

namespace faxtray {

// Reads $XDG_CONFIG_HOME/faxtray/config, or ~/.config/faxtray/config, into `chosen`; what the file does not
// name stays, and a file that is missing is no error. Returns "", or why the file is refused: "FILE:LINE:
// ..."
std::string read_client_config(options *chosen);

}  // namespace faxtray
