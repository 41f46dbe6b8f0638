// messages: how this room reports failures: in the log and the trace, or to the caller of a request.
#pragma once

#include "protocol/records.h"

namespace faxtray {

// Writes the text to standard error, which is the log, and to the trace.
void report(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The same, with the program's name and ": " in front of it on standard error only.
void report_as_program(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Fills `error`, unless it is null, and returns 0. The message is cut at 2047 characters; it is in a static
// buffer that the next refusal overwrites.
int refuse(err_t *error, int code, int sys_errno, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

}  // namespace faxtray
