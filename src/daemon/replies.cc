// One buffer serves all error messages: requests are handled one at a time, and a reply is sent before the
// next one is filled.
#include "daemon/replies.h"

#include <cstdarg>
#include <cstdio>

namespace faxtray {

char buf[2048];

in_res_t *reply(in_res_t &result, res_type_t type)
{
    result = {};
    result.res_type = type;
    return &result;
}

in_res_t *error_reply(in_res_t &result, int code, int sys_errno, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    if (vsnprintf(buf, sizeof buf, format, args) < 0)
        buf[0] = '\0';
    va_end(args);
    return error_reply(result, err_t{code, sys_errno, buf});
}

in_res_t *error_reply(in_res_t &result, const err_t &error)
{
    reply(result, RES_ERROR)->err = error;
    return &result;
}

}  // namespace faxtray
