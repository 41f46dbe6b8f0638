// messages: how this room tells of failures: to the log and the trace, or to the caller of a request.
#pragma once

#include "protocol/records.h"

namespace faxtray {

// Writes the text to standard error and to the trace.
void report(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The same, on standard error with the program's name and ": " in front.
void report_as_program(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Fills `error`, when one is given, and returns 0. The message is cut at 2047 characters and lies in a
// static buffer that the next refusal overwrites.
int refuse(err_t *error, int code, int sys_errno, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

}  // namespace faxtray
