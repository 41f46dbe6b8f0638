// error_stream: failures reported on a stream of the caller's choice, or not at all.
#pragma once

#include <cstdio>

namespace faxtray {

// Prints to `stream`; does nothing if it is null.
void report_to(FILE *stream, const char *format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace faxtray
