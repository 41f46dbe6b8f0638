// log_and_trace: how our code writes to the exception log, with or without the trace.
//
//     log_and_trace({ELOG_WARNING, ELOG_FILE}, "mail: popen(\"%s\") failed: %s\n", ...);
#pragma once

namespace faxtray {

// The level and the destinations of an entry, and the line of code that writes it. Constructed in place, from
// a braced list, at the call: the defaults are then the caller's file and line. Compiler built-ins, because
// clang 14 lacks std::source_location.
struct log_entry_at {
    log_entry_at(int a_level, int its_destinations, const char *its_file = __builtin_FILE(),
                 int its_line = __builtin_LINE())
        : level(a_level), destinations(its_destinations), file(its_file), line(its_line)
    {
    }

    int level, destinations;
    const char *file;
    int line;
};

// Writes an entry to the exception log and the same text to the trace, at most 8447 characters of it there.
// Returns -1, so that a caller can return its result. errno is left as it was.
int log_and_trace(const log_entry_at &at, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Writes an entry to the exception log alone, for what the trace has got in other words or is not to show.
void log_only(const log_entry_at &at, const char *format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace faxtray
