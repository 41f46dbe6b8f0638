// project_version: what --version prints, the same for all programs.
#pragma once

#include <string>

namespace faxtray {

// "PROGRAM 1.0", with the version that the build is of. Not to be confused with the version texts of the
// protocol and the logs, which are placeholders (version_id.h).
std::string version_text(const char *program);

}  // namespace faxtray
