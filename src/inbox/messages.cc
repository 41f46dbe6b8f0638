// The text is formatted into a buffer of fixed size, so that running out of memory can be reported too.
#include "inbox/messages.h"

#include <cstdarg>
#include <cstdio>

namespace faxtray {

int refuse(err_t *error, int code, int sys_errno, const char *format, ...)
{
    static char message[2048];

    if (!error)
        return 0;
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof message, format, args);
    va_end(args);
    *error = {code, sys_errno, message};
    return 0;
}

}  // namespace faxtray
