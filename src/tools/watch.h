// watch: imports every file that comes into a directory.
#pragma once

#include <string>

#include "tools/import_job.h"

namespace faxtray {

// Imports what lies in `directory` and what comes into it, until SIGTERM, SIGINT or another signal that ends
// a program; then returns true. False with a message on standard error if the directory cannot be watched,
// as when another process does. What is imported and what is refused is printed.
bool watch(const import_job_t &job, const std::string &directory);

}  // namespace faxtray
