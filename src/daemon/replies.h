// replies: fills the result record of a procedure.
//
// Each procedure owns one static in_res_t and passes it to these functions, which return it. Error messages
// are in one shared buffer, so a result is valid until the next request is handled.
#pragma once

#include "protocol/records.h"

namespace faxtray {

extern char buf[2048];  // the message of the last error reply; longer ones are cut

// A reply of that type without data; the caller may add some.
in_res_t *reply(in_res_t &result, res_type_t type);

// RES_ERROR with the formatted message; `sys_errno` is an errno, or 0 where none applies.
in_res_t *error_reply(in_res_t &result, int code, int sys_errno, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

// RES_ERROR with `error` as it is; its message must outlive the request.
in_res_t *error_reply(in_res_t &result, const err_t &error);

}  // namespace faxtray
