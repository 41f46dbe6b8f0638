// completion: what may follow on a command line that is being typed, for the shells that complete it. It
// knows commands and options from the parser itself, so the scripts in completions/ need to know none of
// them.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

#include "client/client_session.h"

namespace faxtray {

// `words` are those after the program's name, as typed, with their quotes; the last is the one to complete,
// "" if it has not been begun. Prints what it may become, one a line, quoted for the shell as that word is.
// Inboxes, recipients and faxes are asked of the server, for two seconds at most, and without asking for a
// password.
//
// Returns EXIT_DONE, or EXIT_NOTHING, with nothing printed, if the name of a file is to follow.
exit_status complete(CLI::App &app, options *chosen, std::vector<std::string> words);

}  // namespace faxtray
