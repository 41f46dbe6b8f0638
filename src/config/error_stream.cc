// One line of output, or none.
#include "config/error_stream.h"

#include <cstdarg>

namespace faxtray {

void report_to(FILE *stream, const char *format, ...)
{
    if (!stream)
        return;
    va_list args;
    va_start(args, format);
    vfprintf(stream, format, args);
    va_end(args);
}

}  // namespace faxtray
