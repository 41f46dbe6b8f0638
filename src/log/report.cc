// Every text is formatted once, into a buffer of fixed size, so that running out of memory can be reported
// too.
#include "log/report.h"

#include <sys/param.h>

#include <cstdarg>
#include <cstdio>

#include "util/settings.h"
#include "util/trace.h"

namespace faxtray {

// Two paths at their longest and the words around them.
static constexpr size_t report_size = 2 * MAXPATHLEN + 256;

__attribute__((format(printf, 3, 0))) static void write_report(const char *prefix, const char *separator,
                                                               const char *format, va_list args)
{
    char text[report_size];
    vsnprintf(text, sizeof text, format, args);
    fprintf(stderr, "%s%s%s", prefix, separator, text);
    trprintf("%s", text);
}

void report(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    write_report("", "", format, args);
    va_end(args);
}

void report_as_program(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    write_report(Program, ": ", format, args);
    va_end(args);
}

}  // namespace faxtray
