// log_callback: hands log entries to the site's own command.
#pragma once

namespace faxtray {

// Runs "COMMAND TYPE" with `text`, printed as an empty format, on its standard input. Types are 0 to 2; the
// exception log is 2. 1, or 0 with a trace line.
int run_log_callbacks(const char *command, int log_type, const char *text);

}  // namespace faxtray
