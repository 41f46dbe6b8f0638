// log_and_trace: tells of a failure twice: to the exception log and to the trace.
#pragma once

namespace faxtray {

// Where an entry of the exception log goes and which line of code makes it; made in braces where it is used:
// log_and_trace({ELOG_WARNING, ELOG_FILE}, "mail: ...", ...).
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

// Returns -1, the result of most who fail so. The trace gets at most 8447 characters. errno is left as it
// was.
int log_and_trace(const log_entry_at &at, const char *format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace faxtray
