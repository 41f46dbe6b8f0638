// unnamed_file: room on the disk for what is too large for memory. The file has no name, so that nobody else
// can open it, and nothing is left of it however the program ends.
#pragma once

#include "util/owned.h"

namespace faxtray {

// An empty file in $TMPDIR or else /tmp, open for reading and writing. None with errno.
unique_fd make_unnamed_file();

}  // namespace faxtray
