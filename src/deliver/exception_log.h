// exception_log: one line for every exceptional event, in the exception log and, on request, on
// standard output and standard error. Whoever must be told besides hangs in by a hook.
#pragma once

namespace faxtray {

enum : int { ELOG_FATAL = 0, ELOG_ERROR = 1, ELOG_WARNING = 2, ELOG_NOTICE = 3 };
enum : int { ELOG_FILE = 1, ELOG_STDOUT = 2, ELOG_STDERR = 4 };  // bits of a destination mask

// Names the log file; until then entries for it go to /dev/null. 1, or 0 with nothing changed when
// `log_file` is null or empty. Names are cut to 4095 characters; `queue` counts from 1.
int elog_init(const char *program_name, const char *log_file, int queue);

int elog_toggle_notify(int on);  // set: administrator notices are skipped; returns the previous value

// Appends an entry. 1 when it was written to its log file, else 0. Only the first 512 characters of
// `format` count, without trailing newlines.
int elog_writef(const char *version_id, const char *source_file, int line, int level, int destinations,
                const char *format, ...) __attribute__((format(printf, 6, 7)));

// What is told of an entry once it is written: administrator notices and log callbacks fill this in.
struct elog_entry_t {
    int level;
    int queue;
    const char *prefix;   // "21-Nov-2026 03:44:21 WARNING:  "
    const char *message;  // formatted
    const char *format;   // as given
    const char *trailer;  // "  //program [file:line] ...\n"
    int written;          // bytes of the last write, negative when it failed
    bool notify;          // false while notices are switched off
};
void elog_set_notifier(void (*notifier)(const elog_entry_t &entry));

}  // namespace faxtray
