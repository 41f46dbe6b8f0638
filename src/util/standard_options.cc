// PROJECT_VERSION comes from CMake's project(), for this file alone: a new version compiles nothing else
// again.
#include "util/standard_options.h"

namespace faxtray {

const struct option help_and_version[] = {
    {"help", no_argument, nullptr, 'h'}, {"version", no_argument, nullptr, 'V'}, {nullptr, 0, nullptr, 0}};

std::string version_text(const char *program)
{
    return std::string(program) + " " + PROJECT_VERSION;
}

}  // namespace faxtray
