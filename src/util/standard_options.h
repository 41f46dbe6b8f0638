// standard_options: --help and --version, which every program understands.
#pragma once

#include <getopt.h>

#include <string>

namespace faxtray {

// For getopt_long: --help comes back as 'h', --version as 'V'.
extern const struct option help_and_version[];

// "PROGRAM 1.0": which version of this software it is. Not to be confused with the version texts of the
// protocol and the logs, which are placeholders (version_id.h).
std::string version_text(const char *program);

}  // namespace faxtray
