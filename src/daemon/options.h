// options: the command line of faxtrayd.
#pragma once

#include <cstdio>

#include "util/owned.h"

namespace faxtray {

struct options_t {
    bool foreground = false;  // -f
    c_string log_file;        // -l; null: the default in the work directory
    int exit_status = -1;     // the status to end with at once, or -1 to go on
};

// Reads the command line with getopt. What other rooms read goes into util/settings; messages go to
// standard error, those of -h to standard output. May be called again.
options_t parse_options(int argc, char *argv[]) noexcept;

void pusage(FILE *stream);

}  // namespace faxtray
