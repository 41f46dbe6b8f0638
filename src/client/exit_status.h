// exit_status: how the command faxtray ends, as faxtray(1) documents it.
#pragma once

namespace faxtray {

enum exit_status : int {
    EXIT_DONE = 0,
    EXIT_REFUSED = 1,      // by the server, or the fax is not what it should be
    EXIT_USAGE = 2,        // wrong command line
    EXIT_UNREACHABLE = 3,  // no server, or the connection was lost
    EXIT_LOCAL = 4,        // a local file or the output
    EXIT_NOTHING = 5,      // nothing to do, or not confirmed
    EXIT_OTHER_FAX = 6,    // the id means another fax than when it was shown
};

}  // namespace faxtray
