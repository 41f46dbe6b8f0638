// The trace comes first: a notice that the log sends may trace much of its own.
#include "log/log_and_trace.h"

#include <sys/param.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "log/exception_log.h"
#include "util/trace.h"
#include "util/version_id.h"

namespace faxtray {

int log_and_trace(const log_entry_at &at, const char *format, ...)
{
    int saved_errno = errno;
    char text[2 * MAXPATHLEN + 256];  // two paths at their longest and the words around them
    va_list args, again;
    va_start(args, format);
    va_copy(again, args);
    vsnprintf(text, sizeof text, format, args);
    trprintf("%s", text);
    elog_vwritef(SCCS_ID, at.file, at.line, at.level, at.destinations, format, again);
    va_end(again);
    va_end(args);
    errno = saved_errno;
    return -1;
}

}  // namespace faxtray
