// exception_log: one line for every exceptional event, in the exception log and, on request, on
// standard output and standard error. Whoever must be told besides hangs in by a hook.
#pragma once

#include <cstdarg>

namespace faxtray {

enum : int { ELOG_FATAL = 0, ELOG_ERROR = 1, ELOG_WARNING = 2, ELOG_NOTICE = 3 };
enum : int { ELOG_FILE = 1, ELOG_STDOUT = 2, ELOG_STDERR = 4 };  // bits of a destination mask

// Names the log file; until then entries for it go to /dev/null. 1, or 0 with nothing changed when
// `log_file` is null or empty. Names are cut to 4095 characters; a `queue` below 1 counts as 1.
int elog_init(const char *program, const char *log_file, int queue);

int elog_toggle_notify(int on);  // set: administrator notices are skipped; returns the previous value

// Writes an entry, one line, to each of `destinations`. `version_id` (version_id.h) and `source_file` tell
// where in the code; either may be null. Of `format` the first 512 characters count, without their trailing
// newlines. 1, or 0 when the log file could not be opened or written; the entry then goes to standard
// error. errno is left as it was.
int elog_writef(const char *version_id, const char *source_file, int line, int level, int destinations,
                const char *format, ...) __attribute__((format(printf, 6, 7)));
int elog_vwritef(const char *version_id, const char *source_file, int line, int level, int destinations,
                 const char *format, va_list args) __attribute__((format(printf, 6, 0)));

// An entry once it is written, as the hook is told of it. The texts last for the call.
struct elog_entry_t {
    int level;
    int queue;            // of the registry, from elog_init
    const char *prefix;   // "21-Nov-2026 03:44:21 WARNING:  "
    const char *message;  // formatted, without newline
    const char *format;   // as given
    const char *trailer;  // "  //program [file:line] release.level.branch.sequence\n"
    int written;          // bytes of the last write, negative when it failed
    bool notify;          // false while notices are switched off, and for what the hook itself logs
};

// Who is told of every entry: log callbacks (always) and administrator notices (when entry.notify). The
// hook may log; those entries come to it too, with `notify` false. Null: nobody.
void elog_set_notifier(void (*notifier)(const elog_entry_t &entry));

}  // namespace faxtray
