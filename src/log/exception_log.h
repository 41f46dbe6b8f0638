// exception_log: one line for every exceptional event, in the exception log and, on request, on standard
// output and standard error. Anyone else who needs to know registers a callback.
//
// Our own code writes entries with log_and_trace.h, which fills in the place in the code by itself.
#pragma once

#include <cstdarg>

namespace faxtray {

enum : int { ELOG_FATAL = 0, ELOG_ERROR = 1, ELOG_WARNING = 2, ELOG_NOTICE = 3 };
enum : int { ELOG_FILE = 1, ELOG_STDOUT = 2, ELOG_STDERR = 4 };  // bits of a destination mask

// The exception log and, as standard error is the daemon's log file, that file too.
inline constexpr int elog_file_and_stderr = ELOG_FILE | ELOG_STDERR;

// Names the log file; until then entries for it are written to /dev/null. Returns 1, or 0 with nothing
// changed if `log_file` is null or empty. Names are cut to 4095 characters; a `queue` below 1 counts as 1.
int elog_init(const char *program, const char *log_file, int queue);

// With `on` set, administrator notices are skipped. Returns the previous value.
int elog_toggle_notify(int on);

// Writes an entry, one line, to each of `destinations`. `version_id` (version_id.h), `source_file` and `line`
// say where in the code; the first two may be null. The first 512 characters of `format` count, without their
// trailing newlines. Returns 1, or 0 if the log file could not be opened or written; an entry whose file
// cannot be opened is written to standard error. errno is left as it was.
int elog_writef(const char *version_id, const char *source_file, int line, int level, int destinations,
                const char *format, ...) __attribute__((format(printf, 6, 7)));
int elog_vwritef(const char *version_id, const char *source_file, int line, int level, int destinations,
                 const char *format, va_list args) __attribute__((format(printf, 6, 0)));

// An entry as the callback gets it, once it has been written. The texts last for the call.
struct elog_entry_t {
    int level;
    int queue;            // of the registry, from elog_init
    const char *prefix;   // "21-Nov-2026 03:44:21 WARNING:  "
    const char *message;  // formatted, without newline
    const char *format;   // as given
    const char *trailer;  // "  //program [file:line] release.level.branch.sequence\n"
    int written;          // bytes of the last write, negative if it failed
    bool notify;          // false while notices are switched off, and for what the callback itself logs
};

// Registers the callback that gets every entry; null: none. It may log: those entries reach it too, with
// `notify` false.
void elog_set_notifier(void (*notifier)(const elog_entry_t &entry) noexcept);

}  // namespace faxtray
