// log_callback: hands log entries to the site's own command (option -L).
#pragma once

namespace faxtray {

// Runs "COMMAND TYPE" and writes `text` to its standard input. Types are 0 to 2; the exception log is 2. The
// text is printed as a format without arguments (empty_format.h). Returns 1 if the command exited with status
// 0, or 0 with a trace line.
int run_log_callbacks(const char *command, int log_type, const char *text);

}  // namespace faxtray
