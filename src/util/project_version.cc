// PROJECT_VERSION comes from CMake's project(), for this file alone: a new version compiles nothing else
// again.
#include "util/project_version.h"

namespace faxtray {

std::string version_text(const char *program)
{
    return std::string(program) + " " + PROJECT_VERSION;
}

}  // namespace faxtray
