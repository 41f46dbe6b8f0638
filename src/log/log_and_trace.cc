// Neither the trace nor the exception log changes errno, so nothing is saved here.
#include "log/log_and_trace.h"

#include <sys/param.h>

#include <cstdarg>
#include <cstdio>

#include "log/exception_log.h"
#include "util/trace.h"
#include "util/version_id.h"

namespace faxtray {

int log_and_trace(const log_entry_at &at, const char *format, ...)
{
    char text[2 * MAXPATHLEN + 256];  // two paths at their longest and the words around them
    va_list args, again;
    va_start(args, format);
    va_copy(again, args);
    vsnprintf(text, sizeof text, format, args);
    // The trace first: writing the entry may send a notice, and with it traces of its own.
    trprintf("%s", text);
    elog_vwritef(SCCS_ID, at.file, at.line, at.level, at.destinations, format, again);
    va_end(again);
    va_end(args);
    return -1;
}

void log_only(const log_entry_at &at, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    elog_vwritef(SCCS_ID, at.file, at.line, at.level, at.destinations, format, args);
    va_end(args);
}

}  // namespace faxtray
