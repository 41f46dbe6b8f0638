// messages: how this room reports failures to the caller of a request.
#pragma once

#include "protocol/records.h"

namespace faxtray {

// Fills `error`, unless it is null, and returns 0. The message is cut at 2047 characters; it is in a static
// buffer that the next refusal overwrites.
int refuse(err_t *error, int code, int sys_errno, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

}  // namespace faxtray
