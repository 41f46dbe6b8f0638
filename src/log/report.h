// report: failures as an administrator hears of them: in the log, and in the trace of what led to them.
#pragma once

namespace faxtray {

// Writes the text to standard error, which is the log, and to the trace.
void report(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The same, with the program's name and ": " in front of it on standard error only.
void report_as_program(const char *format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace faxtray
