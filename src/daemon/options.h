// options: the command line of faxtrayd.
#pragma once

#include <cstdio>

#include "util/owned.h"

namespace faxtray {

struct options_t {
    bool foreground = false;  // -f
    c_string log_file;        // -l; null: the default in the work directory
    int exit_status = -1;     // the status to exit with at once, or -1 to go on
};

// Parses the command line with getopt. Settings that other rooms read are stored in util/settings; messages
// go to standard error, the usage text of -h to standard output. May be called more than once.
options_t parse_options(int argc, char *argv[]) noexcept;

void pusage(FILE *stream);  // writes the usage text

}  // namespace faxtray
